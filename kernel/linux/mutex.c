// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mutex.h>

#include <kernel/mutex.h>

void helper_mutex_lock(struct mutex *lock)
{
	mutex_lock(lock);
}

void helper_mutex_unlock(struct mutex *lock)
{
	mutex_unlock(lock);
}
