// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/lockdep.h>
#include <kernel/mutex.h>
#include <new>
#include <type_traits>

using namespace hosted;

namespace
{

constexpr std::uint32_t mutex_magic = 0x6d757478;

enum mutex_state : unsigned { unlocked, locked, contended };

// Not std::mutex: nobody would destroy it before its memory serves something else.
struct sleeping_lock {
	std::uint32_t magic = mutex_magic;
	unsigned lock_class;
	std::atomic<unsigned> state{unlocked};
	// compared with the caller's own task only, so a stale value does no harm
	std::atomic<const task_struct *> owner{nullptr};
};
static_assert(sizeof(sleeping_lock) <= sizeof(struct mutex));
static_assert(std::is_trivially_destructible_v<sleeping_lock>);

sleeping_lock &real(struct mutex *lock)
{
	return *reinterpret_cast<sleeping_lock *>(lock->storage);
}

} // namespace

void __mutex_init(struct mutex *lock, const char *name, struct lock_class_key *key)
{
	if (judging && real(lock).magic == mutex_magic && real(lock).state != unlocked)
		judge_stop("mutex initialised while held", name);
	new (lock->storage) sleeping_lock{.lock_class = lock_class(name, key)};
}

void helper_mutex_lock(struct mutex *lock) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();
	sleeping_lock &m = real(lock);

	if constexpr (judging) {
		might_sleep("mutex_lock");
		if (m.magic != mutex_magic)
			judge_stop("mutex", "the mutex was never initialised");
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
		if (m.magic != mutex_magic)
			judge_stop("mutex", "the mutex was never initialised");
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
