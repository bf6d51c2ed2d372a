// SPDX-License-Identifier: GPL-2.0-only
// Inside of a task, for the hosted kernel's own files.
#pragma once

#include <atomic>
#include <condition_variable>
#include <hosted/tasks.h>
#include <kernel/sched.h>
#include <memory>
#include <mutex>
#include <thread>

namespace hosted
{

inline constexpr int task_running = 0;
inline constexpr int task_uninterruptible = 2;

// What makes a task a kernel thread. Under the scheduler's lock, but for what is atomic or const.
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

int new_pid();

// A parked kernel thread, which wake_up_process starts.
task_struct *spawn_thread(int (*function)(void *data), void *data, std::string_view comm,
			  bool of_kernel);
// Asks the thread to stop, wakes it, waits for its end, frees it and returns its result.
int end_thread(task_struct *task);

} // namespace hosted

struct task_struct {
	task_struct(std::string_view name, int number);

	char comm[TASK_COMM_LEN];
	int pid;
	// written under the scheduler's lock
	std::atomic<int> state{hosted::task_running};
	std::condition_variable woken;
	std::unique_ptr<hosted::kernel_thread> thread;
};
