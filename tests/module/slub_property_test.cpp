// SPDX-License-Identifier: GPL-2.0-only
// Slab tracking, compared with a plain model over random histories.
#include "slub_fixture.h"

#include <map>
#include <numeric>
#include <optional>

#include <fmt/format.h>
#include <hosted/engine/fault.h>
#include <rapidcheck.h>

using namespace hosted;
using namespace module_tests;

namespace
{

enum class action { record, toggle, hold, read };

struct step {
	action what;
	bool on; // or held
	int kind;
	std::string function;
	std::string comm;
	int pid;
	context_kind context;
	bool saved; // whether the depot takes the stack
	int times;
};

std::ostream &operator<<(std::ostream &os, const step &s)
{
	return os << fmt::format("{{{} on {} kind {} {} {} {} context {} saved {} x{}}}",
				 int(s.what), s.on, s.kind, s.function, s.comm, s.pid,
				 int(s.context), s.saved, s.times);
}

rc::Gen<step> any_step()
{
	using rc::gen::element;
	return rc::gen::construct<step>(
		rc::gen::weightedElement<action>({{12, action::record},
						  {3, action::toggle},
						  {2, action::hold},
						  {1, action::read}}),
		rc::gen::weightedElement<bool>({{2, true}, {1, false}}),
		element<int>(SLUB_ALLOC, SLUB_FREE), element<std::string>("f", "g"),
		element<std::string>("sh", "kworker/u8:10", "kworker/u8:11", "exactly15chars."),
		rc::gen::inRange(1, 6),
		element(context_kind::process, context_kind::process, context_kind::softirq,
			context_kind::hardirq),
		rc::gen::weightedElement<bool>({{9, true}, {1, false}}),
		rc::gen::weightedOneOf<int>(
			{{4, rc::gen::inRange(0, 100)}, {1, rc::gen::inRange(0, 5000)}}));
}

struct event {
	std::string place; // the innermost frame, or the caller's address without a saved stack
	std::string comm;
	long pid;
};

struct tally {
	long count;
	long pid_min;
	long pid_max;

	bool operator==(const tally &) const = default;
};

// A kind: its ring, its thread, and the counts by place and task.
struct model {
	std::vector<event> pending;
	u64 out = 0;
	bool held = false;
	bool woken = false;
	std::map<std::string, std::map<std::string, tally>> tree;

	void record(const event &e)
	{
		if (pending.size() < slub_ring_entries)
			pending.push_back(e);
		if (pending.size() < half_ring)
			return;
		woken = held;
		if (!held)
			drain();
	}
	void drain()
	{
		for (const event &e : pending) {
			tally &t = tree[e.place]
					   .try_emplace(e.comm, tally{0, e.pid, e.pid})
					   .first->second;
			t = {t.count + 1, std::min(t.pid_min, e.pid), std::max(t.pid_max, e.pid)};
		}
		out += pending.size();
		pending.clear();
	}
};

// Compares a kind's records with the model and empties the model. Among equally frequent tasks of a
// place, the readout may show any.
void check_records(const std::vector<tarn::caller_record> &records, model &m)
{
	using weight = std::pair<unsigned long, long>; // total, count
	std::vector<std::pair<weight, std::string>> expected;
	for (const auto &[place, tasks] : m.tree) {
		std::vector<long> counts;
		for (const auto &[comm, t] : tasks)
			if (t.count >= 50)
				counts.push_back(t.count);
		std::ranges::sort(counts, std::greater());
		const unsigned long total = std::accumulate(counts.begin(), counts.end(), 0L);
		counts.resize(std::min<std::size_t>(counts.size(), 3));
		for (const long count : counts)
			expected.push_back({{total, count}, place});
	}

	std::vector<std::pair<weight, std::string>> shown;
	for (const tarn::caller_record &r : records) {
		const std::string place = r.frames.empty() ? r.handle : r.frames[0];
		RC_ASSERT((tally{r.count, r.pid_min, r.pid_max}) == m.tree.at(place).at(r.comm));
		RC_ASSERT((shown.empty() || shown.back().first >= weight(r.total, r.count)));
		shown.push_back({{r.total, r.count}, place});
	}
	std::ranges::sort(expected);
	std::ranges::sort(shown);
	RC_ASSERT(shown == expected);
	m.tree.clear();
}

class slub_property : public slub_test
{
protected:
	void record_in_both(const step &s)
	{
		const bool interrupt = s.context != context_kind::process;
		const std::vector<unsigned long> frames = path(s.function);
		const event e{s.saved ? symbol_text(frames[0]) : fmt::format("{:#x}", frames[0]),
			      interrupt ? "" : s.comm, interrupt ? 0 : s.pid};
		const task_ptr task = make_task(s.comm, s.pid);
		const task_scope as(*task);
		const frame_scope at(frames);
		for (int i = 0; i < s.times; i++) {
			{
				const context_scope in(s.context);
				std::optional<fault_scope> fault;
				if (!s.saved)
					fault.emplace("stack_depot_save");
				(s.kind == SLUB_ALLOC ? record_alloc : record_free)(*cache, 1);
			}
			settle();
			if (tracking)
				models[s.kind].record(e);
		}
	}
	void switch_in_both(bool enable)
	{
		RC_ASSERT(command(enable ? on : off) == 0);
		for (model &m : models) {
			if (!enable && tracking)
				m.drain();
			if (enable && !tracking)
				m.out = 0;
		}
		tracking = enable;
	}
	void hold_in_both(int kind, bool hold)
	{
		model &m = models[kind];
		(hold ? hold_thread : let_go_thread)(drain_threads[kind]);
		settle();
		m.held = hold;
		if (!hold && m.woken && tracking)
			m.drain();
		m.woken = hold && m.woken;
	}
	void read_both()
	{
		const tarn::readout readout = read();
		check_records(readout.alloc, models[SLUB_ALLOC]);
		check_records(readout.free, models[SLUB_FREE]);
	}
	void run(const step &s)
	{
		if (s.what == action::record)
			record_in_both(s);
		else if (s.what == action::toggle)
			switch_in_both(s.on);
		else if (s.what == action::hold)
			hold_in_both(s.kind, s.on);
		else
			read_both();
		for (const int kind : {SLUB_ALLOC, SLUB_FREE}) {
			const model &m = models[kind];
			RC_ASSERT(ring(kind) == ring_counters(m.out + m.pending.size(), m.out));
		}
	}
	// Needed after a history that failed half-way.
	void begin_again()
	{
		switch_in_both(false);
		for (const int kind : {SLUB_ALLOC, SLUB_FREE}) {
			hold_in_both(kind, false);
			models[kind] = {};
		}
		read();
	}

	kmem_cache *cache = add_cache("victim", 64);
	model models[SLUB_KINDS];
	bool tracking = false;
};

TEST_F(slub_property, module_and_model_agree)
{
	choose("victim");
	EXPECT_TRUE(rc::check([&] {
		begin_again();
		switch_in_both(true);
		for (const step &s : *rc::gen::container<std::vector<step>>(any_step()))
			run(s);
		switch_in_both(false);
		read_both();
	}));
	begin_again(); // a held thread could not be stopped
}

} // namespace
