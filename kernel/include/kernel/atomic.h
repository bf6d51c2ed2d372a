/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Operations on single words. They are relaxed unless noted: they order nothing. Where order
 * matters, the module takes a lock.
 */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

static inline int atomic_read(const atomic_t *v)
{
	return __atomic_load_n(&v->counter, __ATOMIC_RELAXED);
}

static inline void atomic_set(atomic_t *v, int value)
{
	__atomic_store_n(&v->counter, value, __ATOMIC_RELAXED);
}

static inline void atomic_inc(atomic_t *v)
{
	__atomic_fetch_add(&v->counter, 1, __ATOMIC_RELAXED);
}

static inline void atomic_dec(atomic_t *v)
{
	__atomic_fetch_sub(&v->counter, 1, __ATOMIC_RELAXED);
}

static inline int atomic_fetch_inc(atomic_t *v)
{
	return __atomic_fetch_add(&v->counter, 1, __ATOMIC_RELAXED);
}

/* Fully ordered, for the caller that drops the last reference: everything that others did with the
 * object before they dropped theirs happens before what that caller does next. */
static inline bool atomic_dec_and_test(atomic_t *v)
{
	return __atomic_sub_fetch(&v->counter, 1, __ATOMIC_SEQ_CST) == 0;
}

static inline long atomic_long_read(const atomic_long_t *v)
{
	return __atomic_load_n(&v->counter, __ATOMIC_RELAXED);
}

static inline s64 atomic64_read(const atomic64_t *v)
{
	return __atomic_load_n(&v->counter, __ATOMIC_RELAXED);
}

static inline void atomic64_add(s64 i, atomic64_t *v)
{
	__atomic_fetch_add(&v->counter, i, __ATOMIC_RELAXED);
}

static inline s64 atomic64_xchg_relaxed(atomic64_t *v, s64 value)
{
	return __atomic_exchange_n(&v->counter, value, __ATOMIC_RELAXED);
}

KERNEL_C_END
#endif
