/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

void *memcpy(void *to, const void *from, size_t n);
void *memset(void *to, int byte, size_t n);
size_t strlen(const char *s);
int strcmp(const char *a, const char *b);
int strncmp(const char *a, const char *b, size_t n);

/* Writes at most size bytes, including the NUL. Returns the number of characters stored without the
 * NUL. */
int scnprintf(char *buf, size_t size, const char *fmt, ...) KERNEL_PRINTF(3, 4);

KERNEL_C_END

/* Without these, a freestanding compiler calls the functions even for a few bytes. */
#ifdef TARN_MODULE
#define memcpy(to, from, n) __builtin_memcpy(to, from, n)
#define memset(to, byte, n) __builtin_memset(to, byte, n)
#endif
#endif
