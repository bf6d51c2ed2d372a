// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <condition_variable>
#include <deque>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/lockdep.h>
#include <hosted/engine/opaque.h>
#include <hosted/sched.h>
#include <hosted/workqueue.h>
#include <kernel/kthread.h>
#include <kernel/workqueue.h>
#include <new>
#include <utility>

struct workqueue_struct {
	std::mutex lock;
	std::condition_variable item_done;
	std::deque<work_struct *> queued;
	work_struct *running = nullptr;
	task_struct *worker = nullptr;
};

using namespace hosted;

namespace
{

struct work {
	magic_number<0x776f726b> magic{};
	unsigned lock_class;
	void (*function)(work_struct *work);
	unsigned cancellers = 0; // while nonzero, the item cannot be queued
};

work &real(work_struct *storage)
{
	return opaque_cast<work>(storage);
}

workqueue_struct &queue()
{
	// never destroyed, since its worker may outlive main
	static workqueue_struct &the_queue = *new workqueue_struct;
	return the_queue;
}

bool is_queued(const work_struct *item)
{
	return std::ranges::find(queue().queued, item) != queue().queued.end();
}

void judge_item(work_struct *item, const char *call)
{
	judge_initialised(real(item), call, "the work item was never initialised");
}

// Removes and returns the next item; null if none is queued.
work_struct *take_item()
{
	workqueue_struct &q = queue();
	const std::lock_guard guard(q.lock);
	if (q.queued.empty())
		return nullptr;
	q.running = q.queued.front();
	q.queued.pop_front();
	return q.running;
}

void run_item(work_struct *item)
{
	workqueue_struct &q = queue();
	// the function may free the item, so nothing of it is read afterwards
	const unsigned lock_class = real(item).lock_class;
	push_held_lock(self(), item, lock_class);
	{
		const callback_check check(lock_class_name(lock_class));
		real(item).function(item);
	}
	pop_held_lock(self(), item);
	const std::lock_guard guard(q.lock);
	q.running = nullptr;
	q.item_done.notify_all();
}

int serve(void *)
{
	for (;;) {
		// set before checking the queue, so that no wake-up is lost in between
		set_current_state(TASK_INTERRUPTIBLE);
		if (work_struct *item = take_item()) {
			set_current_state(task_running);
			run_item(item);
		} else if (kthread_should_stop()) {
			set_current_state(task_running);
			return 0;
		} else {
			schedule();
		}
	}
}

std::vector<std::string> busy_items()
{
	workqueue_struct &q = queue();
	const std::lock_guard guard(q.lock);
	std::vector<std::string> lines(q.queued.size(), "work item, queued");
	if (q.running != nullptr)
		lines.emplace_back("work item, running");
	return lines;
}

const leftover_source work_leftovers(busy_items);

} // namespace

struct workqueue_struct *system_wq = &queue();

namespace hosted
{

void stop_workers()
{
	task_struct *worker = std::exchange(queue().worker, nullptr);
	if (worker == nullptr)
		return;
	let_go_thread(worker->comm);
	end_thread(worker);
}

} // namespace hosted

void helper_init_work(struct work_struct *work, void (*func)(struct work_struct *work))
{
	const std::lock_guard guard(queue().lock);
	if (judging && is_queued(work))
		judge_stop("work item initialised", "it is queued");
	new (work->storage)::work{
		.lock_class = lock_class("work item", reinterpret_cast<const void *>(func)),
		.function = func};
}

bool helper_queue_work(struct workqueue_struct *wq, struct work_struct *work)
{
	judge_item(work, "queue_work");
	const std::lock_guard guard(wq->lock);
	if (real(work).cancellers != 0 || is_queued(work))
		return false;
	wq->queued.push_back(work);
	if (wq->worker == nullptr)
		wq->worker = spawn_thread(serve, nullptr, "kworker/0:1", true);
	wake_up_process(wq->worker);
	return true;
}

bool cancel_work_sync(struct work_struct *work)
{
	might_sleep("cancel_work_sync");
	judge_item(work, "cancel_work_sync");
	workqueue_struct &q = queue();
	std::unique_lock lock(q.lock);
	if (judging && q.running == work && q.worker == self().task)
		judge_stop("cancel_work_sync", "a work item waits for itself to end");
	check_lock_order(self(), real(work).lock_class);
	const bool queued = std::erase(q.queued, work) != 0;
	real(work).cancellers++;
	q.item_done.wait(lock, [&] { return q.running != work; });
	real(work).cancellers--;
	return queued;
}
