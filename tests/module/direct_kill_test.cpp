// SPDX-License-Identifier: GPL-2.0-only
// Killing by size among processes of all kinds.
#include <numeric>
#include <random>

#include <fmt/format.h>
#include <hosted/process.h>
#include <hosted/task_struct.h>

#include "fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::IsEmpty;

namespace
{

constexpr int passes = 20;
constexpr unsigned long never = -1UL; // a target that is not reached

class direct_kill : public module_test
{
protected:
	static task_struct &expendable(int pid, const memory_use &use)
	{
		return add_process(fmt::format("app-{}", pid), pid, use, 600);
	}
	// The victims since the last call. Checks that each signal was sent as it must be.
	static std::vector<int> victims()
	{
		std::vector<int> pids;

		for (const sent_signal &s : take_signals()) {
			pids.push_back(s.pid);
			EXPECT_EQ(s, (sent_signal{s.comm, s.pid, SIGKILL, 0, true}));
		}
		return pids;
	}
	std::vector<int> kills_logged()
	{
		std::vector<int> pids;

		for (const std::string &line : log_lines(log_info, "kill task is ")) {
			pids.push_back(std::stoi(line.substr(line.rfind(' '))));
			EXPECT_EQ(line, fmt::format("[tarn_selected] kill task is app-{} PID is {}",
						    pids.back(), pids.back()));
		}
		forget_log();
		return pids;
	}

	unsigned long (*kill)(int, unsigned long) =
		exported<unsigned long(int, unsigned long)>("tarn_direct_kill");
	task_struct *(*find_task_mm)(task_struct *) =
		exported<task_struct *(task_struct *)>("find_task_mm");
};

TEST_F(direct_kill, kills_largest_first_until_the_target)
{
	expendable(1, {.file = 100, .anon = 20, .swap = 500, .shmem = 3});
	expendable(2, {.anon = 200, .swap = 70});
	expendable(3, {.file = 50});
	expendable(4, {.file = -5, .anon = 130, .swap = -1, .shmem = -5});
	let_victims_exit(true);

	EXPECT_EQ(kill(0, 200), 200U);
	EXPECT_EQ(kill(0, 131), 130U + 123U);
	EXPECT_EQ(victims(), (std::vector{2, 4, 1}));
	EXPECT_EQ(kills_logged(), (std::vector{2, 4, 1}));

	expendable(5, {.anon = 9999, .swap = 1});
	expendable(6, {.anon = 1, .swap = 2});
	EXPECT_EQ(kill(1, 3), 3U) << "by swapped pages; the third process has none";
	EXPECT_EQ(victims(), (std::vector{6, 5}));
}

TEST_F(direct_kill, a_target_of_zero_takes_one_pass_and_the_last_of_equal_sizes)
{
	EXPECT_EQ(kill(0, 0), 0U);
	EXPECT_THAT(kills_logged(), IsEmpty());
	for (const int pid : {1, 2, 3})
		expendable(pid, {.anon = 7});
	expendable(4, {.anon = 6});

	EXPECT_EQ(kill(0, 0), 7U);
	EXPECT_EQ(victims(), (std::vector{3}));
}

TEST_F(direct_kill, spares_processes_that_are_not_expendable)
{
	const memory_use much{.file = 100, .anon = 100, .swap = 100, .shmem = 100};

	forget_log();
	add_process("needed", 1, much, 599);
	add_process("default", 2, much, -1000);
	set_task_flags(expendable(3, much), PF_KTHREAD | PF_MEMALLOC);
	set_memdie(expendable(4, much), true);
	set_task_state(expendable(5, much), TASK_UNINTERRUPTIBLE);
	set_task_state(expendable(6, much), TASK_UNINTERRUPTIBLE | 0x400);
	drop_mm(expendable(7, much));
	task_struct &exiting = expendable(8, much);
	drop_mm(add_thread(exiting, "thread", 9));
	drop_mm(exiting);
	expendable(10, {.swap = 100});
	EXPECT_EQ(kill(0, never), 0U);
	EXPECT_EQ(kill(0, 0), 0U);
	EXPECT_THAT(victims(), IsEmpty());
	EXPECT_THAT(log_lines(log_any), IsEmpty());

	// Other flags and states spare no process.
	task_struct &process = add_process("app-11", 11, {.file = 1}, 1000);
	set_task_flags(process, PF_MEMALLOC);
	set_task_state(process, TASK_INTERRUPTIBLE | 0x400);
	EXPECT_EQ(kill(0, 0), 1U);
	EXPECT_EQ(victims(), (std::vector{11}));
}

TEST_F(direct_kill, a_process_is_judged_by_its_first_thread_with_memory)
{
	task_struct &leader = expendable(1, {.anon = 10});
	add_thread(leader, "app-2", 2);
	task_struct &third = add_thread(leader, "app-3", 3);
	add_thread(leader, "app-4", 4);
	drop_mm(leader);
	set_memdie(leader, true);
	set_task_state(leader, TASK_UNINTERRUPTIBLE);
	set_task_state(third, TASK_UNINTERRUPTIBLE);

	EXPECT_EQ(kill(0, 0), 10U);
	EXPECT_EQ(victims(), (std::vector{2}));
	EXPECT_EQ(kills_logged(), (std::vector{2}));

	task_struct *found = find_task_mm(&leader);
	ASSERT_TRUE(found);
	EXPECT_EQ(helper_task_pid(found), 2);
	EXPECT_TRUE(holds(found->alloc_lock));
	helper_task_unlock(found);
	task_struct &without = add_process("none", 5);
	drop_mm(without);
	EXPECT_EQ(find_task_mm(&without), nullptr);
	EXPECT_FALSE(holds(without.alloc_lock));
}

TEST_F(direct_kill, gives_up_after_twenty_passes)
{
	task_struct &first = expendable(1, {.anon = 10});
	EXPECT_EQ(kill(0, never), 10U);
	EXPECT_EQ(victims(), std::vector(passes, 1)) << "the same victim in each pass";
	EXPECT_EQ(kills_logged(), std::vector(passes, 1));

	// A victim that does not exit is passed over only until another one is found, so the order
	// of the list decides; its pages count each time.
	expendable(2, {.anon = 30});
	EXPECT_EQ(kill(0, 100), 120U);
	EXPECT_EQ(victims(), (std::vector{2, 2, 2, 2}));
	exit_process(first);
	expendable(3, {.anon = 20});
	EXPECT_EQ(kill(0, 100), 100U);
	EXPECT_EQ(victims(), (std::vector{2, 3, 2, 3}));
}

TEST_F(direct_kill, a_victim_that_exited_stays_selected)
{
	expendable(1, {.anon = 10});
	expendable(2, {.anon = 30});
	let_victims_exit(true);

	EXPECT_EQ(kill(0, never), 40U);
	EXPECT_EQ(victims(), (std::vector{2, 1})) << "an exited process gets no signal";
	std::vector<int> logged(passes, 1);
	logged[0] = 2;
	EXPECT_EQ(kills_logged(), logged);
	EXPECT_EQ(kill(0, never), 0U);
}

TEST_F(direct_kill, finds_the_victims_among_ten_thousand_processes)
{
	std::mt19937 random(1);
	std::vector<std::pair<long, int>> sizes;
	for (int pid = 1; pid <= 10000; pid++) {
		const long size = static_cast<long>(random() % 2000);
		const int score = pid % 3 == 0 ? 0 : 600 + pid % 400;
		add_process(fmt::format("app-{}", pid), pid,
			    {.anon = size / 2, .shmem = (size + 1) / 2}, score);
		if (score)
			sizes.emplace_back(size, pid);
	}
	let_victims_exit(true);
	std::ranges::sort(sizes, std::greater());
	std::vector<int> expected;
	unsigned long total = 0;
	for (int i = 0; i < passes; i++) {
		expected.push_back(sizes[i].second);
		total += sizes[i].first;
	}
	EXPECT_EQ(kill(0, never), total);
	EXPECT_EQ(victims(), expected);
	EXPECT_EQ(kills_logged(), expected);
}

} // namespace
