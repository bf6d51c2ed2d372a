// SPDX-License-Identifier: GPL-2.0-only
// The ledger against a plain model: random traces with several CPUs, frees in interrupts and by
// others, reused addresses and frees that nobody saw.
#include <algorithm>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <rapidcheck.h>
#include <tarnctl/ledger/analysis.h>
#include <tarnctl/ledger/ledger_json.h>
#include <tarnctl/ledger/report.h>

#include "trace_testing.h"

namespace tarn::ledger
{

namespace
{

using trace::temp_file;

constexpr std::array caches = {"alpha", "beta", "kmalloc-64", "kmalloc-1k"};
constexpr std::array<std::uint32_t, 4> sizes = {192, 40, 64, 1024};
constexpr std::array comms = {"one", "two", "kworker/0:1"};

// One event, as far as a random number decides it.
struct step {
	explicit step(std::uint32_t r)
		: is_free(r % 8 >= 5), address(1 + r / 8 % 13), cache(r / 128 % 4),
		  task(r / 512 % 3), site(r / 2048 % 3), in_interrupt(r / 8192 % 4 == 0),
		  at_exit(r / 32768 % 3 == 0), cpu(static_cast<int>(r / 131072 % 3)),
		  late(r / 524288 % 2 == 0)
	{
	}

	bool is_free;
	std::uint64_t address;
	std::uint32_t cache;
	std::uint32_t task;
	std::uint32_t site;
	bool in_interrupt;
	bool at_exit;
	int cpu;
	bool late; // the stack comes behind the next event

	[[nodiscard]] std::string comm() const
	{
		return in_interrupt ? "" : comms[task];
	}
	[[nodiscard]] int pid() const
	{
		return in_interrupt ? 0 : 40 + static_cast<int>(task);
	}
};

// The stack of an allocation, as the ledger shows it.
std::string stack_name(const step &s)
{
	return fmt::format("site{}+0x1/0x2 b c d e f g h{} ", s.site, s.site);
}

struct model_object {
	std::uint32_t cache;
	std::tuple<std::string, std::string, std::string, int> owner; // cache, stack, comm, pid
	std::uint64_t time;
};

struct model_count {
	std::uint64_t allocated = 0, freed = 0, exit_freed = 0, held = 0;

	bool operator==(const model_count &) const = default;
};

struct model {
	std::map<std::uint64_t, model_object> live;
	// allocated, freed, unseen, live, peak
	std::map<std::uint32_t, std::array<std::uint64_t, 5>> totals;
	std::map<std::tuple<std::string, std::string, std::string, int>, model_count> owners;
	std::uint64_t unmatched = 0, unseen = 0, bytes = 0, peak = 0, peak_time = 0;

	void gone(std::uint64_t address)
	{
		const model_object &o = live.at(address);

		totals[o.cache][3]--;
		bytes -= sizes[o.cache];
		live.erase(address);
	}

	void take(const step &s, std::uint64_t time);
};

void model::take(const step &s, std::uint64_t time)
{
	const auto old = live.find(s.address);

	if (!s.is_free) {
		if (old != live.end()) {
			totals[old->second.cache][2]++;
			unseen++;
			gone(s.address);
		}
		const auto owner =
			std::tuple(std::string(caches[s.cache]), stack_name(s), s.comm(), s.pid());
		auto &c = totals[s.cache];

		live[s.address] = {s.cache, owner, time};
		owners[owner].allocated++;
		c[0]++;
		c[4] = std::max(c[4], ++c[3]);
		bytes += sizes[s.cache];
	} else if (old == live.end()) {
		unmatched++;
	} else if (s.cache < 2 && old->second.cache != s.cache) {
		// The free names another cache: the known object's own free went unseen.
		totals[old->second.cache][2]++;
		unseen++;
		unmatched++;
		gone(s.address);
	} else {
		totals[old->second.cache][1]++;
		owners[old->second.owner].freed++;
		owners[old->second.owner].exit_freed += s.at_exit ? 1 : 0;
		gone(s.address);
	}
	if (bytes > peak) {
		peak = bytes;
		peak_time = time;
	}
}

std::string header(const step &s, std::uint64_t us)
{
	return fmt::format("{:>16}-{} [00{}] ..{}.. {}.{:06}: ", comms[s.task], 40 + s.task, s.cpu,
			   s.in_interrupt ? 's' : '.', us / 1000000, us % 1000000);
}

std::string event_text(const step &s, std::uint64_t us)
{
	const std::string at = header(s, us);

	if (s.is_free && s.cache < 2)
		return at + fmt::format("kmem_cache_free: call_site=drop+0x1/0x2 ptr={:016x} "
					"name={}\n",
					s.address, caches[s.cache]);
	if (s.is_free)
		return at + fmt::format("kfree: call_site=drop+0x1/0x2 ptr={:016x}\n", s.address);
	return at + fmt::format("{}: call_site=site{}+0x1/0x2 ptr={:016x}{} bytes_req=1 "
				"bytes_alloc={} gfp_flags=GFP_KERNEL\n",
				s.cache < 2 ? "kmem_cache_alloc" : "kmalloc", s.site, s.address,
				s.cache < 2 ? fmt::format(" name={}", caches[s.cache]) : "",
				sizes[s.cache]);
}

std::string stack_text(const step &s, std::uint64_t us)
{
	const std::string at = header(s, us) + "<stack trace>\n";

	if (s.is_free)
		return at + (s.at_exit ? " => drop\n => do_exit\n" : " => drop\n => caller\n");
	// More frames than the module keeps.
	return at +
	       fmt::format(" => kmem_cache_alloc\n => site{}\n => b\n => c\n => d\n => e\n => f\n"
			   " => g\n => h{}\n",
			   s.site, s.site);
}

// Events come in pairs; the stack of the first may come behind the second where that is another
// CPU's.
std::string trace_text(const std::vector<step> &steps)
{
	std::string text;
	std::string pending;

	for (std::size_t i = 0; i < steps.size(); i++) {
		const step &s = steps[i];
		const std::uint64_t us = 1000000 + i * 10;
		const bool can_wait = i + 1 < steps.size() && steps[i + 1].cpu != s.cpu;

		text += event_text(s, us) + pending;
		pending.clear();
		(s.late && can_wait ? pending : text) += stack_text(s, us + 1);
	}
	return text + pending;
}

using counts_by_owner =
	std::map<std::tuple<std::string, std::string, std::string, int>, model_count>;

counts_by_owner found_owners(const ledger &account)
{
	counts_by_owner all;

	for (const group &g : account.groups()) {
		std::string stack;

		for (const std::uint32_t frame : account.stacks()[g.stack])
			stack += account.stacks().frames().text(frame) + " ";
		const task &t = account.task_of(g.task);

		all[{account.index().caches()[g.cache].name, stack, t.comm, t.pid}] = {
			g.allocated, g.freed, g.exit_freed, g.held};
	}
	return all;
}

void compare(const std::vector<std::uint32_t> &numbers, moment shown)
{
	const std::vector<step> steps(numbers.begin(), numbers.end());
	model plain;

	for (std::size_t i = 0; i < steps.size(); i++) {
		plain.take(steps[i], i * 10000);
		const bool at_moment = shown.at == moment::kind::time ? i * 10000 <= shown.ns
				       : shown.at == moment::kind::peak
					       ? plain.peak_time == i * 10000
					       : i + 1 == steps.size();

		if (!at_moment)
			continue;
		for (auto &[owner, count] : plain.owners)
			count.held = 0;
		for (const auto &[address, o] : plain.live)
			plain.owners[o.owner].held++;
	}
	const temp_file file(trace_text(steps));
	const auto a = analyse(file.path(), {}, shown);
	const ledger &account = *a->account;

	for (std::uint32_t cache = 0; cache < caches.size(); cache++) {
		const std::uint32_t number = a->index.find(caches[cache]);
		const auto &[allocated, freed, unseen, live, peak] = plain.totals[cache];

		if (number == trace::none) {
			RC_ASSERT(allocated == 0U);
			continue;
		}
		const cache_account &c = account.caches()[number];

		RC_ASSERT(c.allocated == allocated);
		RC_ASSERT(c.freed == freed);
		RC_ASSERT(c.unseen == unseen);
		RC_ASSERT(c.live == live);
		RC_ASSERT(c.peak == peak);
	}
	RC_ASSERT(account.losses().unmatched_frees == plain.unmatched);
	RC_ASSERT(account.losses().unseen_frees == plain.unseen);
	RC_ASSERT(account.losses().without_stack == 0U);
	RC_ASSERT(account.peak_bytes() == plain.peak);
	RC_ASSERT(account.peak_time() == plain.peak_time);
	RC_ASSERT(account.end_bytes() == plain.bytes);
	RC_ASSERT(account.live().ends().back() == plain.bytes);
	RC_ASSERT(found_owners(account) == plain.owners);
}

std::vector<std::uint32_t> some_numbers()
{
	return *rc::gen::nonEmpty(rc::gen::container<std::vector<std::uint32_t>>(
		rc::gen::inRange<std::uint32_t>(0, 1U << 20)));
}

} // namespace

TEST(ledger, equals_a_plain_model)
{
	EXPECT_TRUE(rc::check([] { compare(some_numbers(), {}); }));
	EXPECT_TRUE(rc::check([] { compare(some_numbers(), {moment::kind::peak}); }));
	EXPECT_TRUE(rc::check([] {
		const auto ns = *rc::gen::inRange<std::uint64_t>(0, 1000000);

		compare(some_numbers(), {moment::kind::time, ns});
	}));
}

} // namespace tarn::ledger
