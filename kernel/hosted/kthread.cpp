// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/log.h>
#include <hosted/sched.h>
#include <kernel/err.h>
#include <kernel/kthread.h>
#include <kernel/process.h>

using namespace hosted;

namespace
{

void run_thread(task_struct &task)
{
	self().task = &task;
	kernel_thread &thread = *task.thread;
	{
		std::unique_lock lock(the_scheduler().lock);
		wait_for_turn(task, lock);
	}
	// a thread stopped before its first run never runs
	int result = -EINTR;
	if (!thread.should_stop.load(std::memory_order_acquire)) {
		const callback_check check(task.comm);
		result = thread.function(thread.data);
	}
	const std::lock_guard guard(the_scheduler().lock);
	thread.result = result;
	thread.ended = true;
	dequeue(task);
	// nobody may wait for it any more; its task stays, so that a late kthread_stop is caught
	if (!thread.should_stop.load(std::memory_order_relaxed))
		thread.host.detach();
}

std::vector<std::string> live_threads()
{
	const std::lock_guard guard(the_scheduler().lock);
	std::vector<std::string> lines;
	for (const task_struct *task : the_scheduler().threads) {
		if (!task->thread->ended && !task->thread->of_kernel)
			lines.push_back(fmt::format("kernel thread {}/{}", task->comm, task->pid));
	}
	return lines;
}

const leftover_source thread_leftovers(live_threads);

} // namespace

namespace hosted
{

unsigned kernel_threads()
{
	return live_threads().size();
}

task_struct *spawn_thread(int (*function)(void *data), void *data, std::string_view comm,
			  bool of_kernel)
{
	auto *task = new task_struct(comm, new_pid());
	task->state = task_uninterruptible;
	task->flags = PF_KTHREAD;
	task->thread.reset(
		new kernel_thread{.function = function, .data = data, .of_kernel = of_kernel});
	const std::lock_guard guard(the_scheduler().lock);
	the_scheduler().threads.push_back(task);
	task->thread->host = std::thread(run_thread, std::ref(*task));
	return task;
}

int end_thread(task_struct *task)
{
	scheduler &s = the_scheduler();
	{
		const std::lock_guard guard(s.lock);
		if (std::ranges::find(s.threads, task) == s.threads.end())
			judge_stop("kthread_stop", "not a kernel thread, or already stopped");
		if (task == self().task)
			judge_stop("kthread_stop", "a thread waits for itself to end");
		if (task->thread->ended)
			judge_stop("kthread_stop of a thread that has already exited", task->comm);
		if (task->thread->should_stop.exchange(true, std::memory_order_release))
			judge_stop("kthread_stop by two callers", task->comm);
	}
	wake_up_process(task);
	task->thread->host.join();

	const std::lock_guard guard(s.lock);
	std::erase(s.threads, task);
	const int result = task->thread->result;
	delete task;
	return result;
}

} // namespace hosted

struct task_struct *kthread_create_on_node(int (*threadfn)(void *data), void *data, int,
					   const char *namefmt, ...)
{
	might_sleep("kthread_create_on_node");
	if (should_fail("kthread_create_on_node"))
		return static_cast<task_struct *>(ERR_PTR(-ENOMEM));
	va_list args;
	va_start(args, namefmt);
	const std::string comm = format(namefmt, args);
	va_end(args);
	return spawn_thread(threadfn, data, comm, false);
}

bool kthread_should_stop(void)
{
	const task_struct *task = self().task;
	if (judging && !task->thread)
		judge_stop("kthread_should_stop", "the task is not a kernel thread");
	return task->thread->should_stop.load(std::memory_order_acquire);
}

int kthread_stop(struct task_struct *task)
{
	might_sleep("kthread_stop");
	return end_thread(task);
}
