// SPDX-License-Identifier: GPL-2.0-only
// The module's face: what other modules may call, and the entries that start and stop it.
#pragma once

#include <kernel/dma.h>
#include <kernel/mmzone.h>
#include <kernel/pgtable.h>
#include <kernel/sched.h>
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

// Whether every zone up to an index, but for the one named "DMA32", is above its high watermark for
// an allocation of an order, with a block for it at hand. True for a negative index, false for one
// that no zone has. Context: any, no lock; outdated as soon as it is told.
bool tarn_zone_watermark_ok(enum zone_type zone_index, unsigned int order);
// The zone index of allocation flags, 0 to 2. Context: any.
enum zone_type tarn_gfp_zone(gfp_t flags);

// Freeing memory, on the caller's thread. Context: process, may sleep and take long.

// One pass of direct reclaim for an allocation of size bytes. Returns the pages reclaimed. Clears
// PF_MEMALLOC of the caller, whether it was set or not.
unsigned long tarn_reclaim(unsigned long size);
// What every slab shrinker can free; the clean unmapped page cache of every file system.
void tarn_drop_slabcache(void);
void tarn_drop_pagecache(void);
// Full synchronous compaction of the zones up to the normal one. The arguments are ignored.
void tarn_compact(int, unsigned int, unsigned long);

// Kills expendable processes (oom_score_adj of 600 and more), largest first, until their pages come
// to the target or twenty passes are done. Sizes are swapped pages where measure is not 0, else
// resident ones. Returns the victims' pages. Context: process; does not sleep.
unsigned long tarn_direct_kill(int measure, unsigned long target);
// The first thread of a process that has its memory still, with its task lock held for the caller
// to release; null when none has. Context: any that may take that lock.
struct task_struct *find_task_mm(struct task_struct *p);

// Maps a range of kernel addresses to a physical range with the attributes of page entries, all in
// bytes and multiples of 4096; other input is refused. Blocks that cannot be rewritten safely are
// left as they are. Context: process, may sleep.
void tarn_change_secpage_range(phys_addr_t phys, unsigned long virt, unsigned long size,
			       pgprot_t prot);
// Sets or clears the platform's flag on each page of a table. Context: any.
void tarn_change_page_flag(struct sg_table *table, bool set);
// Maps a heap buffer for a device, through the platform's IOMMU module where that serves the
// device. Returns 0 or the error of what maps. Context: as that requires.
int tarn_heap_dma_map(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
		      enum dma_data_direction dir, unsigned long attrs);
void tarn_heap_dma_unmap(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			 enum dma_data_direction dir, unsigned long attrs);

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
