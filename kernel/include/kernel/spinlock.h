/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/lockdep.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef struct CAPABILITY("spinlock") raw_spinlock {
	_Alignas_kernel(8) unsigned char storage[KERNEL_SIZEOF_RAW_SPINLOCK];
} raw_spinlock_t;

/* Disables interrupts until the unlock. Returns the state to restore. Context: any. */
unsigned long _raw_spin_lock_irqsave(raw_spinlock_t *lock) ACQUIRE(lock);
void _raw_spin_unlock_irqrestore(raw_spinlock_t *lock, unsigned long flags) RELEASE(lock);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

void helper_raw_spin_lock_init(raw_spinlock_t *lock, const char *name, struct lock_class_key *key);

KERNEL_C_END

#ifdef __cplusplus
/* Holds a spinlock with interrupts disabled for a scope. */
class [[nodiscard]] SCOPED_CAPABILITY irqsave_guard
{
public:
	explicit irqsave_guard(raw_spinlock_t &lock) ACQUIRE(lock)
		: lock_(lock), flags_(_raw_spin_lock_irqsave(&lock))
	{
	}
	~irqsave_guard() RELEASE()
	{
		_raw_spin_unlock_irqrestore(&lock_, flags_);
	}
	irqsave_guard(const irqsave_guard &) = delete;
	irqsave_guard &operator=(const irqsave_guard &) = delete;

private:
	raw_spinlock_t &lock_;
	unsigned long flags_;
};
#endif
