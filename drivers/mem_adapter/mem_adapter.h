// SPDX-License-Identifier: GPL-2.0-only
// The module's face: what other modules may call, and the entries that start and stop it.
#pragma once

#include <kernel/mmzone.h>
#include <kernel/types.h>

KERNEL_C_BEGIN

// Module start and stop. Context: process, once each, by the module loader. Start returns 0: what
// the kernel refuses is logged and left out.
int tarn_mem_adapter_init(void);
void tarn_mem_adapter_exit(void);

// Page counts, in pages of 4 KiB, computed at each call from the kernel's counters without a lock.
// Context: any that may log and take the kernel's swap lock; none of them sleeps or fails.

// The node's reserve: per zone its largest lowmem reserve and high watermark, at most its managed
// pages. Also writes the sum into the node.
unsigned long tarn_get_totalreserve_pages(void);
// Free pages above the reserve; all free pages when they do not exceed it.
unsigned long tarn_get_free_page(void);
// Page cache less swap cache, shmem and unevictable pages; wraps around below 0.
unsigned long tarn_get_file_page(void);
// Anonymous pages on the LRU lists.
unsigned long tarn_get_anon_page(void);
// Swap pages in use; the swap device is zram.
unsigned long tarn_get_zram_page(void);
// 75 % of the swap size, or 20 % where swap is larger than RAM.
unsigned long tarn_cpa_get_zram_watermark_page(void);

// The walk over the memory nodes, of which there is one. Not exported.
pg_data_t *first_online_pgdat(void);
pg_data_t *next_online_pgdat(pg_data_t *pgdat);

// The channel to the low-memory killer daemon (lmkd).

// Opens it. Returns 0, also when it is open already, and -1 when there is no socket to be had.
// Context: process, may sleep.
int tarn_memory_netlink_init(void);
// Closes it. Context: process, may sleep: waits for notifications that are on their way.
void tarn_memory_netlink_exit(void);
// Sends lmkd a 32-bit value, which the channel does not interpret. Returns 0 once a message was
// handed over, delivered or not, and -1 when the channel is closed or no buffer is to be had.
// Context: any; never sleeps.
int lmkd_notify(unsigned int value);

// Leak thresholds (KiB) against the memory in use now. Context: any.
bool tarn_should_dump_unreclaim_slab(void);
bool tarn_should_detect_slab_leak(void);
bool tarn_should_dump_vmalloc(void);
bool tarn_should_detect_vmalloc_leak(void);
// Set and get thresholds by a struct memcheck_threshold at a user address. Return 0 or -EFAULT.
// Context: process, may sleep.
int tarn_process_set_th(void *user_arg);
int tarn_process_get_val(void *user_arg);
// Sets all four to a twelfth of RAM; returns 0. The exit leaves them as they are.
int tarn_meminfo_parameter_init(void);
void tarn_meminfo_parameter_exit(void);

// Memory tracking. Context: process, may sleep, for all of these.

// Creates the drain threads and attaches the slab and vmalloc hooks. Returns 0, also when they are
// there already, or a negative error with nothing left behind.
int tarn_memtrack_init(void);
void tarn_memtrack_exit(void);
// Runs the struct memcheck_command at a user address. Returns 0 (also for a memory type that is
// neither slab nor vmalloc), -EFAULT, -EINVAL or the tracker's own error.
int tarn_process_leak_detect(void *user_arg);
// Fills the readout buffer at a user address: a struct memcheck_info, then room for text. Returns
// 0, -EFAULT, -EINVAL for a bad size or type, -ENOMEM.
int tarn_process_leak_read(void *user_arg);

// Counts an event of another module; types are 0 to 7, others are ignored. For GPL modules only.
// Context: any.
void tarn_memory_event_report(unsigned int type);

KERNEL_C_END
