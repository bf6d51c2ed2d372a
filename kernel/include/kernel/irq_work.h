/* SPDX-License-Identifier: GPL-2.0-only */
/* A callback that runs in interrupt context on the queueing CPU as soon as that takes interrupts.
 */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

KERNEL_OPAQUE(irq_work, KERNEL_SIZEOF_IRQ_WORK);

/* Queues the item on this CPU. False if it is queued already. Context: any. */
bool irq_work_queue(struct irq_work *work);
/* Waits until the item is neither queued nor running. Context: process, interrupts on, may sleep.
 */
void irq_work_sync(struct irq_work *work);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

void helper_init_irq_work(struct irq_work *work, void (*func)(struct irq_work *work));

KERNEL_C_END
