/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/lockdep.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct CAPABILITY("mutex") mutex {
	_Alignas_kernel(8) unsigned char storage[KERNEL_SIZEOF_MUTEX];
};

void __mutex_init(struct mutex *lock, const char *name, struct lock_class_key *key);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* mutex_lock is a macro on kernels with lock checking, hence the helper. Context: process, may
 * sleep. */
void helper_mutex_lock(struct mutex *lock) ACQUIRE(lock);
void helper_mutex_unlock(struct mutex *lock) RELEASE(lock);

KERNEL_C_END

#ifdef __cplusplus
/* Holds a mutex for a scope. Context: process, may sleep. */
class [[nodiscard]] SCOPED_CAPABILITY mutex_guard
{
public:
	explicit mutex_guard(struct mutex &lock) ACQUIRE(lock) : lock_(lock)
	{
		helper_mutex_lock(&lock);
	}
	~mutex_guard() RELEASE()
	{
		helper_mutex_unlock(&lock_);
	}
	mutex_guard(const mutex_guard &) = delete;
	mutex_guard &operator=(const mutex_guard &) = delete;

private:
	struct mutex &lock_;
};
#endif
