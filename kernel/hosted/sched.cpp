// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/judge.h>
#include <hosted/sched.h>
#include <string>

using namespace hosted;

namespace hosted
{

namespace
{

bool may_run(const task_struct &task)
{
	return task.state.load(std::memory_order_relaxed) == task_running &&
	       !(task.thread && task.thread->held);
}

task_struct &existing_thread(std::string_view comm)
{
	task_struct *task = find_thread(comm);
	if (task == nullptr)
		judge_stop("no such kernel thread", comm);
	return *task;
}

} // namespace

scheduler &the_scheduler()
{
	// never destroyed, since threads may outlive main
	static scheduler &one = *new scheduler;
	return one;
}

void dequeue(task_struct &task)
{
	if (!task.thread || !task.thread->runnable)
		return;
	scheduler &s = the_scheduler();
	task.thread->runnable = false;
	// release: whoever sees that all is quiet also sees what the threads did before
	if (s.runnable.fetch_sub(1, std::memory_order_release) == 1)
		s.quiet.notify_all();
}

void make_runnable(task_struct &task)
{
	if (!may_run(task))
		return;
	if (task.thread && !task.thread->runnable && !task.thread->ended) {
		task.thread->runnable = true;
		the_scheduler().runnable.fetch_add(1, std::memory_order_relaxed);
	}
	task.woken.notify_one();
}

void wait_for_turn(task_struct &task, std::unique_lock<std::mutex> &lock)
{
	while (!may_run(task)) {
		dequeue(task);
		task.woken.wait(lock);
	}
}

task_struct *find_thread(std::string_view comm)
{
	for (task_struct *task : the_scheduler().threads) {
		if (comm == task->comm && !task->thread->ended)
			return task;
	}
	return nullptr;
}

bool wake_task(task_struct &task, unsigned states)
{
	const std::lock_guard guard(the_scheduler().lock);
	if ((static_cast<unsigned>(task.state.load(std::memory_order_relaxed)) & states) == 0)
		return false;
	task.state.store(task_running, std::memory_order_relaxed);
	make_runnable(task);
	return true;
}

void set_current_state(int state)
{
	const std::lock_guard guard(the_scheduler().lock);
	self().task->state.store(state, std::memory_order_relaxed);
}

void resched()
{
	if (self().task->need_resched.exchange(false, std::memory_order_relaxed))
		std::this_thread::yield();
}

void settle()
{
	scheduler &s = the_scheduler();
	if (s.runnable.load(std::memory_order_acquire) == 0)
		return;
	std::unique_lock lock(s.lock);
	s.quiet.wait(lock, [&] { return s.runnable.load(std::memory_order_relaxed) == 0; });
}

void hold_thread(std::string_view comm)
{
	const std::lock_guard guard(the_scheduler().lock);
	existing_thread(comm).thread->held = true;
}

void let_go_thread(std::string_view comm)
{
	const std::lock_guard guard(the_scheduler().lock);
	task_struct &task = existing_thread(comm);
	task.thread->held = false;
	make_runnable(task);
}

} // namespace hosted

void schedule(void)
{
	thread_context &ctx = self();
	if (judging && atomic_context(ctx))
		judge_stop("sleep in atomic context", "schedule");
	ctx.task->need_resched.store(false, std::memory_order_relaxed);
	{
		std::unique_lock lock(the_scheduler().lock);
		if (!may_run(*ctx.task)) {
			wait_for_turn(*ctx.task, lock);
			return;
		}
	}
	std::this_thread::yield();
}

int wake_up_process(struct task_struct *task)
{
	return wake_task(*task, TASK_NORMAL) ? 1 : 0;
}

struct task_struct *helper_current(void)
{
	return self().task;
}

int helper_task_pid(const struct task_struct *task)
{
	check_task_use(*task);
	return task->pid;
}

const char *helper_task_comm(const struct task_struct *task)
{
	check_task_use(*task);
	return task->comm;
}
