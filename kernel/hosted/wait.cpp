// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/opaque.h>
#include <hosted/sched.h>
#include <kernel/spinlock.h>
#include <kernel/wait.h>
#include <type_traits>

using namespace hosted;

namespace
{

struct wait_entry {
	wait_entry *next;
	wait_entry *prev;
	task_struct *task;

	// next is also read without the queue's lock.
	void unlink()
	{
		WRITE_ONCE(prev->next, next);
		next->prev = prev;
		WRITE_ONCE(next, this);
		prev = this;
	}
	[[nodiscard]] bool queued() const
	{
		return next != this;
	}
};
static_assert(std::is_trivial_v<wait_entry>);

// This is a lock of the kernel interface, so that it is judged together with the caller's locks.
struct wait_queue {
	raw_spinlock_t lock;
	wait_entry head;
};
static_assert(std::is_trivial_v<wait_queue>);
static_assert(offsetof(wait_queue, head) == KERNEL_WAIT_QUEUE_ENTRIES);
static_assert(offsetof(wait_entry, next) == offsetof(list_head, next));

wait_queue &real(struct wait_queue_head *wq_head)
{
	return opaque_cast<wait_queue>(wq_head);
}

wait_entry &real(struct wait_queue_entry *wq_entry)
{
	return opaque_cast<wait_entry>(wq_entry);
}

} // namespace

void __init_waitqueue_head(struct wait_queue_head *wq_head, const char *name,
			   struct lock_class_key *key)
{
	wait_queue &queue = real(wq_head);
	helper_raw_spin_lock_init(&queue.lock, name, key);
	queue.head = {&queue.head, &queue.head, nullptr};
}

void helper_init_wait(struct wait_queue_entry *wq_entry)
{
	wait_entry &entry = real(wq_entry);
	entry = {&entry, &entry, self().task};
}

void prepare_to_wait(struct wait_queue_head *wq_head, struct wait_queue_entry *wq_entry, int state)
{
	wait_queue &queue = real(wq_head);
	wait_entry &entry = real(wq_entry);

	const irqsave_guard guard(queue.lock);
	if (!entry.queued()) {
		entry.next = queue.head.next;
		entry.prev = &queue.head;
		entry.next->prev = &entry;
		WRITE_ONCE(queue.head.next, &entry);
	}
	// under the lock, so that a waker that finds the entry also finds the state
	set_current_state(state);
}

void finish_wait(struct wait_queue_head *wq_head, struct wait_queue_entry *wq_entry)
{
	set_current_state(task_running);
	const irqsave_guard guard(real(wq_head).lock);
	real(wq_entry).unlink();
}

int __wake_up(struct wait_queue_head *wq_head, unsigned int mode, int, void *)
{
	wait_queue &queue = real(wq_head);

	const irqsave_guard guard(queue.lock);
	for (wait_entry *entry = queue.head.next; entry != &queue.head;) {
		wait_entry *next = entry->next;
		if (wake_task(*entry->task, mode))
			entry->unlink();
		entry = next;
	}
	// only exclusive waiters would be counted, and this interface cannot make any
	return 0;
}
