/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Included by every header of the kernel interface. All of them are valid C and C++: C for the
 * helpers that implement them on a real kernel, C++ for the module.
 *
 * Names: a function or object that the kernel exports keeps the kernel's name and signature.
 * Whatever is inline or a macro in the kernel gets the prefix helper_ and does the one thing it
 * names.
 *
 * A helper file compiled inside a real kernel tree defines KERNEL_NATIVE_TYPES and includes the
 * kernel's own header first: types then come from the kernel, and its compiler checks each
 * declaration here against the kernel's.
 */
#pragma once

#ifdef __cplusplus
#define KERNEL_C_BEGIN extern "C" {
#define KERNEL_C_END }
#else
#define KERNEL_C_BEGIN
#define KERNEL_C_END
#endif

#ifndef KERNEL_NATIVE_TYPES
#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif
/* Sizes and constants of the kernel being built for; each kernel supplies its own file. */
#include <kernel_build/sizes.h>

/* A kernel structure that the module embeds by value without knowing its fields. */
#define KERNEL_OPAQUE(name, size)                                                                  \
	struct name {                                                                              \
		_Alignas_kernel(8) unsigned char storage[(size) != 0 ? (size) : 1];                \
	}
#ifdef __cplusplus
#define _Alignas_kernel(n) alignas(n)
#else
#define _Alignas_kernel(n) _Alignas(n)
#endif

/* A field of a kernel structure, at the offset that the kernel's sizes.h names. */
#ifdef __cplusplus
#define KERNEL_FIELD(type, object, offset)                                                         \
	(*reinterpret_cast<const type *>(reinterpret_cast<const char *>(object) + (offset)))
#else
#define KERNEL_FIELD(type, object, offset) (*(const type *)((const char *)(object) + (offset)))
#endif

/* A single load or store that the compiler neither tears nor repeats. It orders nothing. On a real
 * kernel it is the volatile access that the kernel makes itself, for which GCC makes shorter code
 * than for an atomic one. */
#if defined(__KERNEL__) && defined(__cplusplus)
#define READ_ONCE(x) (*static_cast<const volatile __typeof__(x) *>(&(x)))
#define WRITE_ONCE(x, value) (void)(*static_cast<volatile __typeof__(x) *>(&(x)) = (value))
#else
#define READ_ONCE(x) __atomic_load_n(&(x), __ATOMIC_RELAXED)
#define WRITE_ONCE(x, value) __atomic_store_n(&(x), (value), __ATOMIC_RELAXED)
#endif
/* The same load, done before all loads and stores that follow it. */
#define LOAD_ACQUIRE(x) __atomic_load_n(&(x), __ATOMIC_ACQUIRE)
#endif

/* A local variable that the compiler does not fill where it initialises all others, for one that is
 * filled on a hot path before it is read. */
#if defined(__has_attribute) && __has_attribute(uninitialized)
#define KERNEL_UNINITIALIZED __attribute__((uninitialized))
#else
#define KERNEL_UNINITIALIZED
#endif

#ifdef __GNUC__
#define KERNEL_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#endif

/* Lock annotations, checked by Clang's thread-safety analysis and empty elsewhere. */
#if defined(__clang__) && defined(__cplusplus)
#define TSA(x) __attribute__((x))
#else
#define TSA(x)
#endif
#define CAPABILITY(name) TSA(capability(name))
#define SCOPED_CAPABILITY TSA(scoped_lockable)
#define GUARDED_BY(lock) TSA(guarded_by(lock))
#define ACQUIRE(...) TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TSA(release_capability(__VA_ARGS__))
#define REQUIRES(...) TSA(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TSA(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TSA(no_thread_safety_analysis)
