/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/lockdep.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

KERNEL_OPAQUE(timer_list, KERNEL_SIZEOF_TIMER_LIST);

void init_timer_key(struct timer_list *timer, void (*func)(struct timer_list *timer),
		    unsigned int flags, const char *name, struct lock_class_key *key);
/* Arms or re-arms the timer. expires is in jiffies. Context: any. */
int mod_timer(struct timer_list *timer, unsigned long expires);
/* Disarms the timer and waits for a running callback, even one that re-arms the timer. Do not call
 * it from the callback. */
int timer_delete_sync(struct timer_list *timer);

KERNEL_C_END
#endif
