// SPDX-License-Identifier: GPL-2.0-only
// The inside of a task, for the hosted kernel's own files.
#pragma once

#include <atomic>
#include <condition_variable>
#include <hosted/engine/judge.h>
#include <hosted/spinlock.h>
#include <hosted/task_control.h>
#include <kernel/sched.h>
#include <memory>
#include <mutex>
#include <thread>

struct mm_struct;

namespace hosted
{

inline constexpr int task_running = 0;
inline constexpr int task_uninterruptible = 2;

// The part of a task that makes it a kernel thread. Protected by the scheduler's lock, except for
// atomic and const members.
struct kernel_thread {
	int (*const function)(void *data);
	void *const data;
	const bool of_kernel; // the kernel's own, not made by a module
	std::atomic<bool> should_stop{false};
	bool runnable = false; // counted among the runnable threads
	bool held = false;
	bool ended = false;
	int result = 0;
	std::thread host{};
};

struct process; // a thread group

int new_pid();
[[noreturn]] void stop_task_use();
// Whether this thread holds the alloc_lock of any task. Only for a build with the judge.
bool holds_task_lock();

// Creates a parked kernel thread; wake_up_process starts it.
task_struct *spawn_thread(int (*function)(void *data), void *data, std::string_view comm,
			  bool of_kernel);
// Asks the thread to stop, wakes it, waits until it ends, frees it and returns its result.
int end_thread(task_struct *task);

} // namespace hosted

struct CAPABILITY("task") task_struct {
	task_struct(std::string_view name, int number, hosted::process *of = nullptr);

	char comm[TASK_COMM_LEN];
	int pid;
	// written under the scheduler's lock
	std::atomic<int> state{hosted::task_running};
	std::condition_variable woken;
	std::unique_ptr<hosted::kernel_thread> thread;

	// PF_*, written by the task itself or by its creator
	std::atomic<unsigned> flags{0};
	std::atomic<bool> need_resched{false};
	std::atomic<bool> memdie{false};
	raw_spinlock_t alloc_lock{};
	mm_struct *mm GUARDED_BY(alloc_lock) = nullptr;
	// null for a task that is not on the list of processes and belongs to its creator
	hosted::process *const group;
	std::atomic<task_struct *> next_thread{nullptr};
};

namespace hosted
{

// Stops a caller that uses a task that could be freed at any moment.
inline void check_task_use(const task_struct &task)
{
	if constexpr (judging) {
		const thread_context &ctx = self();
		if (task.group && ctx.rcu_depth == 0 && ctx.task != &task &&
		    !holds(task.alloc_lock)) [[unlikely]]
			stop_task_use();
	}
}

} // namespace hosted
