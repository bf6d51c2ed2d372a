/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Nesting counts of disabled preemption (0xff), soft (0xff00) and hard (0xf0000) interrupts, and
 * NMI (0xf00000). */
int helper_preempt_count(void);

KERNEL_C_END

#ifdef __cplusplus
/* Whether the current code runs in an interrupt rather than on behalf of a task. */
inline bool in_interrupt_context()
{
	return (helper_preempt_count() & 0xffff00) != 0;
}
#endif
