// SPDX-License-Identifier: GPL-2.0-only
// The list of processes, and the signals sent to them. Kernel threads and the tasks of make_task
// are not on the list. Thread safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kernel/process.h>

namespace hosted
{

// In pages; a reading of a counter may be briefly negative.
struct memory_use {
	long file = 0;
	long anon = 0;
	long swap = 0;
	long shmem = 0;
};

// Adds a process with one thread at the end of the list. It lives until it exits.
task_struct &add_process(std::string_view comm, int pid, const memory_use &use = {},
			 int oom_score_adj = 0);
// Adds a thread at the end of a process's list of threads.
task_struct &add_thread(task_struct &process, std::string_view comm, int pid);

void set_memory_use(task_struct &process, const memory_use &use);
void set_oom_score_adj(task_struct &process, int score);
void set_task_flags(task_struct &task, unsigned flags);
void set_task_state(task_struct &task, unsigned state);
void set_memdie(task_struct &task, bool memdie);
// Drops the task's memory, as an exiting thread does before its process leaves the list.
void drop_mm(task_struct &task);
// Sets whether the current task should give up its CPU at the next opportunity.
void set_need_resched(bool pending);

// Removes the process from the list; its tasks are freed a grace period later. In an RCU read
// section it returns at once.
void exit_process(task_struct &process);
// Sets whether a process that receives SIGKILL exits as soon as its task lock is free.
void let_victims_exit(bool exit);

struct sent_signal {
	std::string comm;
	int pid;
	int sig;
	int priv;
	bool task_locked; // whether the sender held the task lock

	bool operator==(const sent_signal &) const = default;
};
// Removes and returns the signals since the last call, in order.
std::vector<sent_signal> take_signals();

// Removes all processes.
void reset_processes();

} // namespace hosted
