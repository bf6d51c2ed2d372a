// SPDX-License-Identifier: GPL-2.0-only
// vmalloc tracking: stacks saved in vmalloc areas, and the vmalloc leak notification.
#pragma once

#include <kernel/notifier.h>
#include <kernel/seq_file.h>
#include <kernel/vmalloc.h>

struct irq_work;

KERNEL_C_BEGIN

extern int vmalloc_track_flag;

// Start and stop. Init returns 0 even if a hook could not be attached. Context: process, may sleep;
// called with memcheck_lock held.
int vmalloc_track_init(void);
void vmalloc_track_exit(void);

// Probes. Context: any; never sleep.
void vh_save_vmalloc_stack(void *data, unsigned long flags, struct vm_struct *area);
void vh_show_stack_hash(void *data, struct seq_file *m, struct vm_struct *area);
int memtrack_vmap_purge_notify(struct notifier_block *nb, unsigned long action, void *data);

// Tells lmkd of a vmalloc leak, on behalf of the probe, whose caller may hold any lock. Context:
// interrupt.
void vmalloc_notify_leak(struct irq_work *work);

// The operations of vmalloc_page_stack (memcheck.h). Context: process, may sleep; called through
// that table with memcheck_lock held.
int tarn_vmalloc_track_on(const char *name);
int tarn_vmalloc_track_off(const char *name);
int tarn_vmalloc_stack_open(int kind);
int tarn_vmalloc_stack_close(void);
long tarn_vmalloc_stack_read(void *records, unsigned long max_records, int kind);

KERNEL_C_END
