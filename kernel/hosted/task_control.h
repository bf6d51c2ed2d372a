// SPDX-License-Identifier: GPL-2.0-only
// Tasks and kernel threads, and functions to control them.
#pragma once

#include <memory>
#include <string_view>

struct task_struct;

namespace hosted
{

struct task_deleter {
	void operator()(task_struct *task) const;
};
using task_ptr = std::unique_ptr<task_struct, task_deleter>;

// Creates a user task that a test or the command line acts as (task_scope). comm is cut to 15
// characters.
task_ptr make_task(std::string_view comm, int pid);
// Renames a task. No other thread may be running as it.
void set_task(task_struct &task, std::string_view comm, int pid);

// Lets every kernel thread and worker run: returns when all of them sleep, are held or have ended.
// Cheap if none is runnable.
void settle();

// Holds a kernel thread: it may sleep and be woken, but schedule() does not return until the thread
// is let go. The thread is found by its name, which must exist. Stopping a held thread waits until
// it is let go.
void hold_thread(std::string_view comm);
void let_go_thread(std::string_view comm);

unsigned kernel_threads(); // number of existing threads

} // namespace hosted
