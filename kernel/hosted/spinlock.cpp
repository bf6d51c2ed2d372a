// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <ctime>
#include <hosted/engine/irqs_off.h>
#include <hosted/engine/lockdep.h>
#include <hosted/engine/opaque.h>
#include <hosted/irq_work.h>
#include <hosted/spinlock.h>
#include <new>
#include <thread>

using namespace hosted;

namespace
{

constinit thread_local irqs_off_timer *timer = nullptr;

// After this many attempts the owner has probably been preempted by the host.
constexpr unsigned looks_before_yield = 100;

struct spinlock {
	magic_number<0xdead4ead> magic{};
	unsigned lock_class;
	std::atomic<bool> locked{false};
	// only compared with the caller's own context, so a stale value is harmless
	std::atomic<const thread_context *> owner{nullptr};
};

spinlock &real(raw_spinlock_t *lock)
{
	return opaque_cast<spinlock>(lock);
}

std::chrono::nanoseconds processor_time()
{
	timespec now = {};

	clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
	return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

inline void pause()
{
#if defined(__x86_64__)
	__builtin_ia32_pause();
#elif defined(__aarch64__)
	asm volatile("yield");
#endif
}

void wait_until_free(const spinlock &lock)
{
	for (unsigned looks = 0; lock.locked.load(std::memory_order_relaxed); looks++) {
		if (looks < looks_before_yield)
			pause();
		else
			std::this_thread::yield();
	}
}

inline void check_before_taking(const thread_context &ctx, const spinlock &spin)
{
	if constexpr (judging) {
		judge_initialised(spin, "spinlock", "the lock was never initialised");
		if (spin.owner.load(std::memory_order_relaxed) == &ctx) [[unlikely]]
			judge_stop("spinlock taken twice", lock_class_name(spin.lock_class));
		check_lock_order(ctx, spin.lock_class);
	}
}

inline void take(thread_context &ctx, raw_spinlock_t *lock)
{
	spinlock &spin = real(lock);

	ctx.preempt_count += preempt_unit;
	while (spin.locked.exchange(true, std::memory_order_acquire))
		[[unlikely]] wait_until_free(spin);
	if constexpr (judging) {
		spin.owner.store(&ctx, std::memory_order_relaxed);
		push_held_lock(ctx, lock, spin.lock_class);
	}
}

inline void release(thread_context &ctx, raw_spinlock_t *lock)
{
	spinlock &spin = real(lock);

	if constexpr (judging) {
		judge_initialised(spin, "spinlock", "the lock was never initialised");
		if (spin.owner.load(std::memory_order_relaxed) != &ctx) [[unlikely]]
			judge_stop("spinlock released by a thread that does not hold it",
				   lock_class_name(spin.lock_class));
		spin.owner.store(nullptr, std::memory_order_relaxed);
		pop_held_lock(ctx, lock);
	}
	spin.locked.store(false, std::memory_order_release);
	ctx.preempt_count -= preempt_unit;
}

} // namespace

namespace hosted
{

void spin_lock(raw_spinlock_t &lock) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();

	check_before_taking(ctx, real(&lock));
	take(ctx, &lock);
}

void spin_unlock(raw_spinlock_t &lock) NO_THREAD_SAFETY_ANALYSIS
{
	release(self(), &lock);
}

bool holds(const raw_spinlock_t &lock)
{
	const auto &spin = opaque_cast<spinlock>(&lock);

	return spin.owner.load(std::memory_order_relaxed) == &self();
}

irqs_off_timer::irqs_off_timer() : longest_(max_lock_classes)
{
	timer = this;
}

irqs_off_timer::~irqs_off_timer()
{
	timer = nullptr;
}

std::chrono::nanoseconds irqs_off_timer::longest() const
{
	return std::ranges::max(longest_);
}

std::chrono::nanoseconds irqs_off_timer::longest(std::string_view lock_class) const
{
	std::chrono::nanoseconds found{};

	for (unsigned i = 0; i < longest_.size(); i++)
		if (longest_[i] > found && lock_class_name(i) == lock_class)
			found = longest_[i];
	return found;
}

void irqs_off_timer::begin(unsigned lock_class)
{
	lock_class_ = lock_class;
	began_ = processor_time();
}

void irqs_off_timer::end()
{
	longest_[lock_class_] = std::max(longest_[lock_class_], processor_time() - began_);
}

} // namespace hosted

void helper_raw_spin_lock_init(raw_spinlock_t *lock, const char *name, struct lock_class_key *key)
{
	if (judging && real(lock).magic.intact() && real(lock).locked)
		judge_stop("spinlock initialised while held", name);
	new (lock->storage) spinlock{.lock_class = lock_class(name, key)};
}

unsigned long _raw_spin_lock_irqsave(raw_spinlock_t *lock) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();
	const unsigned long flags = ctx.irqs_off;

	check_before_taking(ctx, real(lock));
	if (timer && !flags) [[unlikely]]
		timer->begin(real(lock).lock_class);
	ctx.irqs_off = true;
	take(ctx, lock);
	return flags;
}

void _raw_spin_unlock_irqrestore(raw_spinlock_t *lock,
				 unsigned long flags) NO_THREAD_SAFETY_ANALYSIS
{
	thread_context &ctx = self();

	release(ctx, lock);
	ctx.irqs_off = flags != 0;
	if (timer && !flags) [[unlikely]]
		timer->end();
	interrupts_on(ctx);
}
