// SPDX-License-Identifier: GPL-2.0-only
// A low-memory killer on the caller's thread: kills expendable processes, largest first, until
// their pages are enough.
//
// Locks: one RCU read section per call keeps the tasks that the call sees from being freed. A
// task's lock, a spinlock taken inside it with interrupts on, protects its memory; one task's at a
// time.
#include <kernel/process.h>
#include <kernel/rcupdate.h>

#include "log.h"
#include "mem_adapter.h"

namespace
{

constexpr int max_passes = 20;
// Processes with this oom_score_adj or more are expendable.
constexpr int expendable_score = 600;

// Releases a task lock that is held already.
class [[nodiscard]] SCOPED_CAPABILITY task_lock_guard
{
public:
	explicit task_lock_guard(struct task_struct *task) ACQUIRE(task) NO_THREAD_SAFETY_ANALYSIS
		: task_(task)
	{
	}
	~task_lock_guard() RELEASE()
	{
		helper_task_unlock(task_);
	}
	task_lock_guard(const task_lock_guard &) = delete;
	task_lock_guard &operator=(const task_lock_guard &) = delete;

private:
	struct task_struct *task_;
};

unsigned long size_of(const struct mm_struct *mm, bool swapped)
{
	if (swapped)
		return helper_mm_counter(mm, MM_COUNTER_SWAP);
	return helper_mm_counter(mm, MM_COUNTER_FILE) + helper_mm_counter(mm, MM_COUNTER_ANON) +
	       helper_mm_counter(mm, MM_COUNTER_SHMEM);
}

struct candidate {
	struct task_struct *task = nullptr;
	unsigned long size = 0; // pages
};

// Examines a process. Returns no task if the process must not be killed.
candidate examine(struct task_struct *process, const struct task_struct *last_victim, bool swapped)
{
	if (helper_task_flags(process) & PF_KTHREAD)
		return {};

	struct task_struct *task = find_task_mm(process);

	if (!task)
		return {};

	const task_lock_guard guard(task);

	if (task == last_victim || helper_task_is_memdie(task) ||
	    helper_task_state(task) & TASK_UNINTERRUPTIBLE ||
	    helper_task_oom_score_adj(task) < expendable_score)
		return {};
	return {task, size_of(helper_task_mm(task), swapped)};
}

void tarn_selected(struct task_struct *task)
{
	helper_task_lock(task);
	send_sig(SIGKILL, task, 0);
	helper_task_unlock(task);
	MEM_INFO("kill task is %s PID is %d", helper_task_comm(task), helper_task_pid(task));
}

} // namespace

struct task_struct *find_task_mm(struct task_struct *p) NO_THREAD_SAFETY_ANALYSIS
{
	const rcu_read_guard rcu;

	for (struct task_struct *t = helper_first_thread(p); t; t = helper_next_thread(t)) {
		helper_task_lock(t);
		if (helper_task_mm(t))
			return t;
		helper_task_unlock(t);
	}
	return nullptr;
}

unsigned long tarn_direct_kill(int measure, unsigned long target)
{
	const rcu_read_guard rcu;
	struct task_struct *selected = nullptr;
	unsigned long total = 0;

	// A victim stays selected: a pass that finds no other one signals it again and adds
	// nothing.
	for (int pass = 0; pass < max_passes; pass++) {
		unsigned long best = 0;

		for (struct task_struct *p = helper_next_process(&init_task); p != &init_task;
		     p = helper_next_process(p)) {
			const candidate found = examine(p, selected, measure != 0);

			if (found.size != 0 && (!selected || found.size >= best)) {
				selected = found.task;
				best = found.size;
			}
		}
		if (selected) {
			tarn_selected(selected);
			total += best;
		}
		if (total >= target)
			break;
	}
	return total;
}
