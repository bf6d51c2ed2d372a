/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Both return the number of bytes that could not be copied. Context: process, may sleep. */
unsigned long helper_copy_from_user(void *to, const void *user_from, unsigned long n);
unsigned long helper_copy_to_user(void *user_to, const void *from, unsigned long n);

KERNEL_C_END
