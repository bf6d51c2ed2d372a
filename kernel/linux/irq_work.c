// SPDX-License-Identifier: GPL-2.0-only
#include <linux/irq_work.h>

#include <kernel/irq_work.h>

void helper_init_irq_work(struct irq_work *work, void (*func)(struct irq_work *work))
{
	init_irq_work(work, func);
}
