// SPDX-License-Identifier: GPL-2.0-only
// The scheduler of the hosted kernel: it decides who sleeps; who runs is the host's business.
#pragma once

#include <hosted/task.h>
#include <vector>

namespace hosted
{

struct scheduler {
	std::mutex lock;		    // innermost: nothing else is taken under it
	std::condition_variable quiet;	    // no kernel thread is runnable
	std::atomic<unsigned> runnable{0};  // kernel threads; written under the lock
	std::vector<task_struct *> threads; // kernel threads, the ended ones included
};

scheduler &the_scheduler();

// Makes a task run that is in one of the states. Takes the scheduler's lock.
bool wake_task(task_struct &task, unsigned states);
// Announces what schedule() is to do. Takes the scheduler's lock.
void set_current_state(int state);
// Lets others run if the current task is to give way.
void give_way();

// The rest is called with the scheduler's lock held.

// Blocks until the current task is running and not held.
void wait_for_turn(task_struct &task, std::unique_lock<std::mutex> &lock);
// Takes a kernel thread out of the count of runnable ones.
void leave_processor(task_struct &task);
// Lets a task go on that is running and not held.
void give_turn(task_struct &task);
task_struct *find_thread(std::string_view comm);

} // namespace hosted
