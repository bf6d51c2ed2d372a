// SPDX-License-Identifier: GPL-2.0-only
// The list of processes, and what is sent to them. Kernel threads and the tasks of make_task are
// not on it. Thread safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kernel/process.h>

namespace hosted
{

// Pages; a reading of a counter may be negative for a moment.
struct memory_use {
	long file = 0;
	long anon = 0;
	long swap = 0;
	long shmem = 0;
};

// A process of one thread at the end of the list. It lives until it exits.
task_struct &add_process(std::string_view comm, int pid, const memory_use &use = {},
			 int oom_score_adj = 0);
// One more thread of a process, the last of them.
task_struct &add_thread(task_struct &process, std::string_view comm, int pid);

void set_memory_use(task_struct &process, const memory_use &use);
void set_oom_score_adj(task_struct &process, int score);
void set_task_flags(task_struct &task, unsigned flags);
void set_task_state(task_struct &task, unsigned state);
void set_memdie(task_struct &task, bool memdie);
// As an exiting thread does, before its process leaves the list.
void drop_mm(task_struct &task);
// Whether the current task is to give way at the next opportunity.
void set_need_resched(bool pending);

// The process leaves the list; its tasks are freed a grace period later. Returns at once in an RCU
// read section.
void exit_process(task_struct &process);
// Whether a process that was sent SIGKILL exits as soon as its task lock is free.
void let_victims_exit(bool exit);

struct sent_signal {
	std::string comm;
	int pid;
	int sig;
	int priv;
	bool task_locked; // by the sender

	bool operator==(const sent_signal &) const = default;
};
// The signals since the last look, in order.
std::vector<sent_signal> take_signals();

// No process is left.
void reset_processes();

} // namespace hosted
