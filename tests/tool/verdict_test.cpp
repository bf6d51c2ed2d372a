// SPDX-License-Identifier: GPL-2.0-only
// Who is accused, who is not, and what stays uncertain, on small traces of ten seconds.
#include <algorithm>
#include <functional>
#include <map>
#include <vector>

#include <fmt/format.h>
#include <tarnctl/ledger/analysis.h>
#include <tarnctl/ledger/report.h>

#include "trace_testing.h"

namespace tarn::ledger
{

namespace
{

using trace::temp_file;

// The moments from one second to before another, a fixed step apart.
std::vector<double> every(double step, double from, double to)
{
	std::vector<double> moments;

	for (int i = 0; from + i * step < to; i++)
		moments.push_back(from + i * step);
	return moments;
}

// Events in the order of their time, whatever the order in which a test adds them.
class played_trace
{
public:
	// A program's allocation; returns the object.
	int allocate(double at, const std::string &task, const std::string &cache = "thing",
		     const std::string &site = "make")
	{
		lines_.emplace(at, event(at, task, ".....",
					 fmt::format("kmem_cache_alloc: call_site={}+0x1/0x2 "
						     "ptr={:016x} name={} bytes_req=1 "
						     "bytes_alloc=192 gfp_flags=GFP_KERNEL",
						     site, ++objects_, cache)));
		return objects_;
	}

	void release(double at, const std::string &task, int object,
		     const std::string &cache = "thing")
	{
		add_free(at, task, ".....", object, cache, {"drop", "close"});
	}
	void release_at_exit(double at, const std::string &task, int object,
			     const std::string &cache = "thing",
			     const std::string &by = "exit_files")
	{
		add_free(at, task, ".....", object, cache, {"drop", by, "do_exit"});
	}
	void release_by_rcu(double at, int object, const std::string &cache = "thing")
	{
		add_free(at, "other-9", "..s..", object, cache, {"drop", "rcu_do_batch"});
	}

	// Busy innocents that are alive from start to end.
	void add_churn(double seconds, const std::string &cache = "thing")
	{
		for (const double t : every(0.01, 0, seconds))
			release(t + 0.004, "busy-8", allocate(t, "busy-8", cache), cache);
	}

	[[nodiscard]] std::unique_ptr<analysis> judged(const std::string &extra = {}) const
	{
		std::string text = extra;

		for (const auto &[at, line] : lines_)
			text += line;
		const temp_file file(text);

		return analyse(file.path(), {}, {});
	}

private:
	static std::string event(double at, const std::string &task, const std::string &flags,
				 const std::string &body)
	{
		const std::string comm = task.substr(0, task.find('-'));

		return fmt::format("{:>16}{} [000] {} {:.6f}: {}\n", comm, task.substr(comm.size()),
				   flags, 100 + at, body);
	}
	void add_free(double at, const std::string &task, const std::string &flags, int object,
		      const std::string &cache, const std::vector<std::string> &frames)
	{
		std::string text = event(at, task, flags,
					 fmt::format("kmem_cache_free: call_site=drop+0x1/0x2 "
						     "ptr={:016x} name={}",
						     object, cache)) +
				   event(at, task, flags, "<stack trace>");

		for (const std::string &f : frames)
			text += " => " + f + "\n";
		lines_.emplace(at, text);
	}

	std::multimap<double, std::string> lines_;
	int objects_ = 0;
};

std::vector<std::string> accused(const analysis &a)
{
	std::vector<std::string> names;

	for (const suspect &s : suspects(*a.account))
		names.push_back(s.comm);
	return names;
}

std::string doubted(const analysis &a)
{
	const std::vector<doubt> all = doubts(*a.account);

	return all.empty() ? "" : all.front().reason;
}

const std::vector<std::string> nobody;

} // namespace

TEST(verdict, accuses_who_holds_ever_more_at_the_end)
{
	played_trace t;

	t.add_churn(10);
	// Slowly, amid churn of its own.
	for (const double at : every(0.25, 0.2, 10)) {
		t.allocate(at, "leaky-7");
		for (int i = 0; i < 5; i++)
			t.release(at + 0.1, "leaky-7", t.allocate(at + 0.01 * i, "leaky-7"));
	}
	const auto a = t.judged();

	ASSERT_EQ(accused(*a), std::vector<std::string>{"leaky"});
	const suspect s = suspects(*a->account).front();

	EXPECT_EQ(s.found, finding::leaks);
	EXPECT_EQ(s.pid, 7);
	EXPECT_EQ(s.objects, 40U);
	EXPECT_EQ(s.bytes, 40U * 192);
	EXPECT_NEAR(s.bytes_per_second, 4 * 192, 150);
	EXPECT_NE(s.evidence.find("40 of 240 allocated live at the end"), std::string::npos)
		<< s.evidence;
}

TEST(verdict, accuses_who_leaks_what_rcu_frees)
{
	played_trace t;

	for (const double at : every(0.05, 0, 10)) {
		t.allocate(at, "leaky-7");
		t.release_by_rcu(at + 0.03, t.allocate(at, "good-6"));
	}
	EXPECT_EQ(accused(*t.judged()), std::vector<std::string>{"leaky"});
}

TEST(verdict, accuses_who_keeps_ever_more_until_its_exit)
{
	played_trace t;
	std::vector<int> kept;

	t.add_churn(10);
	for (const double at : every(0.02, 2, 6)) {
		kept.push_back(t.allocate(at, "keeper-5"));
		t.release(at + 0.01, "keeper-5", t.allocate(at, "keeper-5"));
	}
	for (const int object : kept)
		t.release_at_exit(6.1, "keeper-5", object);
	const auto a = t.judged();

	ASSERT_EQ(accused(*a), std::vector<std::string>{"keeper"});
	EXPECT_EQ(suspects(*a->account).front().found, finding::keeps_till_exit);
	EXPECT_EQ(suspects(*a->account).front().objects, kept.size());
}

TEST(verdict, spares_who_only_looks_like_it)
{
	using play = std::function<void(played_trace &)>;
	const std::vector<std::pair<std::string, play>> innocents = {
		{"opens and closes fast",
		 [](played_trace &t) {
			 t.add_churn(10, "other");
		 }},
		{"grows and shrinks, and is growing at the end",
		 [](played_trace &t) {
			 for (int cycle = 0; cycle < 4; cycle++) {
				 for (int i = 0; i < 100; i++) {
					 const double at = cycle * 2.7 + i * 0.015;
					 const int object = t.allocate(at, "wave-4");

					 if (cycle < 3)
						 t.release(cycle * 2.7 + 1.6 + i * 0.01, "wave-4",
							   object);
				 }
			 }
		 }},
		{"ends holding much at once",
		 [](played_trace &t) {
			 t.release(0.1, "burst-4", t.allocate(0, "burst-4"));
			 for (int i = 0; i < 300; i++)
				 t.allocate(9 + i * 0.001, "burst-4");
		 }},
		{"takes much at once and exits",
		 [](played_trace &t) {
			 t.release(1.1, "batch-4", t.allocate(1, "batch-4"));
			 for (int i = 0; i < 300; i++)
				 t.release_at_exit(8.5, "batch-4",
						   t.allocate(8 + i * 0.001, "batch-4"));
		 }},
		{"takes much at its start and keeps it",
		 [](played_trace &t) {
			 for (int i = 0; i < 300; i++)
				 t.allocate(0.5 + i * 0.001, "server-4");
		 }},
		{"takes a second batch later",
		 [](played_trace &t) {
			 for (int i = 0; i < 300; i++)
				 t.allocate((i < 150 ? 2 : 7) + i * 0.001, "server-4");
		 }},
		{"forks children that give back what it allocated for them",
		 [](played_trace &t) {
			 for (int i = 0; i < 100; i++)
				 t.release_at_exit(i * 0.1 + 0.09,
						   "child-" + std::to_string(i + 50),
						   t.allocate(i * 0.1, "shell-4"));
		 }},
	};

	for (const auto &[name, play] : innocents) {
		SCOPED_TRACE(name);
		played_trace t;

		t.add_churn(10);
		play(t);
		EXPECT_EQ(accused(*t.judged()), nobody);
	}
}

TEST(verdict, is_uncertain_where_the_recording_cannot_show_it)
{
	using play = std::function<void(played_trace &)>;
	const std::vector<std::tuple<std::string, std::string, play>> unclear = {
		{"no free of that kind", "",
		 [](played_trace &t) {
			 for (const double at : every(0.05, 0, 10))
				 t.allocate(at, "leaky-7", "odd", "make_odd");
		 }},
		{"gives them back when memory is short", "",
		 [](played_trace &t) {
			 for (const double at : every(0.05, 0, 10))
				 t.allocate(at, "finder-7", "dentry");
			 t.release(9.9, "finder-7", t.allocate(9.8, "finder-7", "dentry"),
				   "dentry");
		 }},
		{"too young", "",
		 [](played_trace &t) {
			 for (const double at : every(0.05, 6, 10))
				 t.allocate(at, "late-7");
		 }},
		{"freed through RCU", "",
		 [](played_trace &t) {
			 std::vector<int> kept;

			 for (const double at : every(0.05, 2, 6))
				 kept.push_back(t.allocate(at, "keeper-5"));
			 t.release_at_exit(6, "keeper-5", t.allocate(2.1, "keeper-5"));
			 for (const int object : kept)
				 t.release_by_rcu(6.1, object);
		 }},
		{"address space", "",
		 [](played_trace &t) {
			 for (const double at : every(0.05, 2, 6))
				 t.release_at_exit(6.1, "maps-5", t.allocate(at, "maps-5"), "thing",
						   "exit_mmap");
		 }},
		{"among the lost events", "CPU:0 [LOST 900 EVENTS]\n",
		 [](played_trace &t) {
			 for (const double at : every(0.05, 0, 10)) {
				 t.allocate(at, "busy-7");
				 for (int i = 0; i < 5; i++)
					 t.release(at + 0.01, "busy-7", t.allocate(at, "busy-7"));
			 }
		 }},
	};

	for (const auto &[reason, extra, play] : unclear) {
		SCOPED_TRACE(reason);
		played_trace t;

		t.add_churn(10);
		play(t);
		const auto a = t.judged(extra);

		EXPECT_EQ(accused(*a), nobody);
		EXPECT_NE(doubted(*a).find(reason), std::string::npos) << doubted(*a);
	}
}

TEST(floor_series, keeps_the_least_however_long_it_gets)
{
	floor_series s;

	for (std::uint64_t i = 1; i <= 1000; i++) {
		s.set(i * 1000000, static_cast<std::uint32_t>(i + 10));
		s.set(i * 1000000 + 10, static_cast<std::uint32_t>(i));
	}
	EXPECT_EQ(s.least(0, 2000000), 0U);
	EXPECT_NEAR(s.least(500000000, 700000000), 500, 20);
	EXPECT_EQ(s.least(5000000000, 6000000000), 1000U);
}

TEST(lifetimes, tell_quantiles_within_a_fifth)
{
	lifetimes l;

	EXPECT_EQ(l.quantile(0.5), 0U);
	for (std::uint64_t us = 1; us <= 1000; us++)
		l.add(us * 1000);
	EXPECT_NEAR(static_cast<double>(l.quantile(0.5)), 500e3, 100e3);
	EXPECT_NEAR(static_cast<double>(l.quantile(0.9)), 900e3, 200e3);
}

} // namespace tarn::ledger
