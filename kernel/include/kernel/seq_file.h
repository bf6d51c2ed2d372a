/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct seq_file;

void seq_putc(struct seq_file *m, char c);
void seq_printf(struct seq_file *m, const char *fmt, ...) KERNEL_PRINTF(2, 3);

KERNEL_C_END
#endif
