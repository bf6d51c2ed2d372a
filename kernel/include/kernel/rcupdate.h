/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Waits until every read section already running has ended. Context: process, may sleep. */
void synchronize_rcu(void);

/* Reads a pointer that is replaced under RCU. Call in a read section. */
#define rcu_dereference(p) __atomic_load_n(&(p), __ATOMIC_CONSUME)

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* A read section must not sleep and may be nested. Context: any. */
void helper_rcu_read_lock(void);
void helper_rcu_read_unlock(void);

KERNEL_C_END

#ifdef __cplusplus
/* Holds an RCU read section open for a scope. */
class [[nodiscard]] rcu_read_guard
{
public:
	rcu_read_guard()
	{
		helper_rcu_read_lock();
	}
	~rcu_read_guard()
	{
		helper_rcu_read_unlock();
	}
	rcu_read_guard(const rcu_read_guard &) = delete;
	rcu_read_guard &operator=(const rcu_read_guard &) = delete;
};
#endif
