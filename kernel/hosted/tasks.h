// SPDX-License-Identifier: GPL-2.0-only
// Tasks and kernel threads, and the levers on them.
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

// A user task that a test or the command line acts as (task_scope). comm is cut to 15 characters.
task_ptr make_task(std::string_view comm, int pid);
// Renames a task that no other thread runs as.
void set_task(task_struct &task, std::string_view comm, int pid);

// Gives every kernel thread and worker its turn: returns when all of them sleep, are held or have
// ended. Cheap when none is runnable.
void settle();

// Keeps a kernel thread off the processor (it may sleep and be woken, but schedule() does not
// return) until it is let go; the thread is found by its name, which must exist. Who
// stops a held thread waits until it is let go.
void hold_thread(std::string_view comm);
void let_go_thread(std::string_view comm);

unsigned kernel_threads(); // threads that exist

} // namespace hosted
