// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/lockdep.h>
#include <hosted/engine/opaque.h>
#include <kernel/mutex.h>
#include <new>

using namespace hosted;

namespace
{

enum mutex_state : unsigned { unlocked, locked, contended };

// Not std::mutex, since nobody would destroy it before its memory is reused.
struct sleeping_lock {
	magic_number<0x6d757478> magic{};
	unsigned lock_class;
	std::atomic<unsigned> state{unlocked};
	// only compared with the caller's own task, so a stale value is harmless
	std::atomic<const task_struct *> owner{nullptr};
};

sleeping_lock &real(struct mutex *lock)
{
	return opaque_cast<sleeping_lock>(lock);
}

} // namespace

void __mutex_init(struct mutex *lock, const char *name, struct lock_class_key *key)
{
	if (judging && real(lock).magic.intact() && real(lock).state != unlocked)
		judge_stop("mutex initialised while held", name);
	new (lock->storage) sleeping_lock{.lock_class = lock_class(name, key)};
}

void helper_mutex_lock(struct mutex *lock) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();
	sleeping_lock &m = real(lock);

	if constexpr (judging) {
		might_sleep("mutex_lock");
		judge_initialised(m, "mutex", "the mutex was never initialised");
		if (m.owner.load(std::memory_order_relaxed) == ctx.task)
			judge_stop("mutex taken twice", lock_class_name(m.lock_class));
		check_lock_order(ctx, m.lock_class);
	}
	unsigned before = unlocked;
	if (!m.state.compare_exchange_strong(before, locked, std::memory_order_acquire)) {
		while (m.state.exchange(contended, std::memory_order_acquire) != unlocked)
			m.state.wait(contended, std::memory_order_relaxed);
	}
	if constexpr (judging) {
		m.owner.store(ctx.task, std::memory_order_relaxed);
		push_held_lock(ctx, lock, m.lock_class);
	}
}

void helper_mutex_unlock(struct mutex *lock) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();
	sleeping_lock &m = real(lock);

	if constexpr (judging) {
		judge_initialised(m, "mutex", "the mutex was never initialised");
		if (m.owner.load(std::memory_order_relaxed) != ctx.task)
			judge_stop("mutex released by a task that does not hold it",
				   lock_class_name(m.lock_class));
		if ((ctx.preempt_count & (softirq_mask | hardirq_mask | nmi_mask)) != 0)
			judge_stop("mutex released in interrupt context",
				   lock_class_name(m.lock_class));
		m.owner.store(nullptr, std::memory_order_relaxed);
		pop_held_lock(ctx, lock);
	}
	if (m.state.exchange(unlocked, std::memory_order_release) == contended)
		m.state.notify_one();
}
