// SPDX-License-Identifier: GPL-2.0-only
// vmalloc tracking: stack stamps on vmalloc areas and the vmalloc leak notification.
#pragma once

#include <kernel/notifier.h>
#include <kernel/seq_file.h>
#include <kernel/vmalloc.h>

KERNEL_C_BEGIN

extern int vmalloc_track_flag;

// Context: process, may sleep. The init returns 0 whatever could be attached.
int vmalloc_track_init(void);
void vmalloc_track_exit(void);

// Probes. Context: any; none of them sleeps.
void vh_save_vmalloc_stack(void *data, unsigned long flags, struct vm_struct *area);
void vh_show_stack_hash(void *data, struct seq_file *m, struct vm_struct *area);
int memtrack_vmap_purge_notify(struct notifier_block *nb, unsigned long action, void *data);

int tarn_vmalloc_track_on(const char *name);
int tarn_vmalloc_track_off(const char *name);
int tarn_vmalloc_stack_open(int kind);
int tarn_vmalloc_stack_close(void);
long tarn_vmalloc_stack_read(void *records, unsigned long max_records, int kind);

KERNEL_C_END
