// SPDX-License-Identifier: GPL-2.0-only
// Processes and threads: what keeps them, and under which locks they are read.
#include <hosted/process.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

using process = kernel_test;
using process_death = kernel_test;

TEST_F(process_death, tasks_need_a_read_section_and_their_memory_the_task_lock)
{
	task_struct &task = add_process("app", 7, {.anon = 5});

	EXPECT_DEATH(helper_task_comm(&task), "used outside an RCU read section");
	EXPECT_DEATH(helper_task_lock(&task), "used outside an RCU read section");
	EXPECT_DEATH(send_sig(SIGKILL, &task, 0), "used outside an RCU read section");
	EXPECT_DEATH(helper_next_process(&init_task), "walked outside");
	{
		const task_scope own(task);
		EXPECT_EQ(helper_task_pid(&task), 7) << "the current task needs no read section";
	}
	const rcu_read_guard rcu;
	ASSERT_EQ(helper_next_process(&init_task), &task);
	EXPECT_EQ(helper_next_process(&task), &init_task);
	EXPECT_DEATH(helper_task_mm(&task), "read without the task's lock");
	helper_task_lock(&task);
	const mm_struct *mm = helper_task_mm(&task);
	EXPECT_EQ(helper_mm_counter(mm, MM_COUNTER_ANON), 5U);
	EXPECT_DEATH(helper_task_lock(&init_task), "two locks of class alloc_lock");
	helper_task_unlock(&task);
	EXPECT_DEATH(helper_mm_counter(mm, MM_COUNTER_ANON), "read without a task's lock");
}

TEST_F(process, an_exited_process_leaves_the_list_but_readers_keep_it)
{
	task_struct &first = add_process("first", 1);
	task_struct &second = add_process("second", 2);
	task_struct &third = add_process("third", 3);
	{
		const rcu_read_guard rcu;
		exit_process(first);
		exit_process(second);
		EXPECT_EQ(helper_next_process(&init_task), &third);
		EXPECT_EQ(helper_next_process(&first), &second)
			<< "a reader can go on from an exited process";
		EXPECT_STREQ(helper_task_comm(&second), "second");
		EXPECT_EQ(send_sig(SIGKILL, &second, 0), -ESRCH);
		const fault_scope fault("send_sig");
		EXPECT_EQ(send_sig(SIGKILL, &third, 0), -EAGAIN);
	}
	EXPECT_TRUE(take_signals().empty());
	exit_process(third); // frees all of them
}

} // namespace
