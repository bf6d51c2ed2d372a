/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Parses an optional sign, digits and an optional newline. Returns 0, or -EINVAL or -ERANGE with
 * res unchanged. */
int kstrtoint(const char *s, unsigned int base, int *res);

KERNEL_C_END
#endif
