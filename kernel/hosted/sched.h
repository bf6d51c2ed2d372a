// SPDX-License-Identifier: GPL-2.0-only
// The scheduler of the hosted kernel. It only decides who sleeps; the host decides who runs.
#pragma once

#include <hosted/task_struct.h>
#include <vector>

namespace hosted
{

struct scheduler {
	std::mutex lock;		    // innermost: nothing else is taken under it
	std::condition_variable quiet;	    // no kernel thread is runnable
	std::atomic<unsigned> runnable{0};  // kernel threads; written under the lock
	std::vector<task_struct *> threads; // kernel threads, including ended ones
};

scheduler &the_scheduler();

// Makes a task runnable if it is in one of the states. Takes the scheduler's lock.
bool wake_task(task_struct &task, unsigned states);
// Sets what schedule() will do. Takes the scheduler's lock.
void set_current_state(int state);
// Lets others run if the current task should give up its CPU.
void resched();

// Call the functions below with the scheduler's lock held.

// Blocks until the current task is running and not held.
void wait_for_turn(task_struct &task, std::unique_lock<std::mutex> &lock);
// Removes a kernel thread from the count of runnable ones.
void dequeue(task_struct &task);
// Lets a task continue if it is running and not held.
void make_runnable(task_struct &task);
task_struct *find_thread(std::string_view comm);

} // namespace hosted
