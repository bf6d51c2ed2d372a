// SPDX-License-Identifier: GPL-2.0-only
#include <linux/spinlock.h>

#include <kernel/spinlock.h>

void helper_raw_spin_lock_init(raw_spinlock_t *lock, const char *name, struct lock_class_key *key)
{
#ifdef CONFIG_DEBUG_SPINLOCK
	__raw_spin_lock_init(lock, name, key, LD_WAIT_SPIN);
#else
	raw_spin_lock_init(lock);
#endif
}
