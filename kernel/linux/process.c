// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>
#include <linux/oom.h>
#include <linux/rculist.h>
#include <linux/sched/mm.h>
#include <linux/sched/signal.h>
#include <linux/sched/task.h>

#include <kernel/process.h>

struct task_struct *helper_next_process(struct task_struct *task)
{
	return next_task(task);
}

struct task_struct *helper_first_thread(struct task_struct *process)
{
	return list_first_or_null_rcu(&process->signal->thread_head, struct task_struct,
				      thread_node);
}

struct task_struct *helper_next_thread(struct task_struct *thread)
{
	return list_next_or_null_rcu(&thread->signal->thread_head, &thread->thread_node,
				     struct task_struct, thread_node);
}

void helper_task_lock(struct task_struct *task)
{
	task_lock(task);
}

void helper_task_unlock(struct task_struct *task)
{
	task_unlock(task);
}

const struct mm_struct *helper_task_mm(const struct task_struct *task)
{
	return task->mm;
}

unsigned int helper_task_flags(const struct task_struct *task)
{
	return READ_ONCE(task->flags);
}

unsigned int helper_task_state(const struct task_struct *task)
{
	return READ_ONCE(task->__state);
}

bool helper_task_is_memdie(const struct task_struct *task)
{
	return test_tsk_thread_flag((struct task_struct *)task, TIF_MEMDIE);
}

int helper_task_oom_score_adj(const struct task_struct *task)
{
	return READ_ONCE(task->signal->oom_score_adj);
}

unsigned long helper_mm_counter(const struct mm_struct *mm, enum mm_counter counter)
{
	static const int members[] = {
		[MM_COUNTER_FILE] = MM_FILEPAGES,
		[MM_COUNTER_ANON] = MM_ANONPAGES,
		[MM_COUNTER_SWAP] = MM_SWAPENTS,
		[MM_COUNTER_SHMEM] = MM_SHMEMPAGES,
	};

	return get_mm_counter((struct mm_struct *)mm, members[counter]);
}

void helper_current_set_flags(unsigned int flags)
{
	current->flags |= flags;
}

void helper_current_clear_flags(unsigned int flags)
{
	current->flags &= ~flags;
}

bool helper_need_resched(void)
{
	return need_resched();
}
