// SPDX-License-Identifier: GPL-2.0-only
// Spinlocks as the kernel's own code takes them when interrupts may stay as they are.
#pragma once

#include <kernel/spinlock.h>

namespace hosted
{

// Preemption is off while the lock is held. Context: process, or any that no other user of the lock
// can interrupt.
void spin_lock(raw_spinlock_t &lock) ACQUIRE(lock);
void spin_unlock(raw_spinlock_t &lock) RELEASE(lock);
// Whether this thread holds the lock. Only for a build with the judge.
bool holds(const raw_spinlock_t &lock);

// Holds a spinlock for a scope.
class [[nodiscard]] SCOPED_CAPABILITY spin_guard
{
public:
	explicit spin_guard(raw_spinlock_t &lock) ACQUIRE(lock) : lock_(lock)
	{
		spin_lock(lock);
	}
	~spin_guard() RELEASE()
	{
		spin_unlock(lock_);
	}
	spin_guard(const spin_guard &) = delete;
	spin_guard &operator=(const spin_guard &) = delete;

private:
	raw_spinlock_t &lock_;
};

} // namespace hosted
