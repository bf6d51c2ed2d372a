// SPDX-License-Identifier: GPL-2.0-only
// The module's interface: what other modules may call, and the entries that start and stop it.
#pragma once

#include <kernel/dma.h>
#include <kernel/mmzone.h>
#include <kernel/pgtable.h>
#include <kernel/sched.h>
#include <kernel/types.h>

struct dma_buf;

KERNEL_C_BEGIN

// Module start and stop, called once each by the module loader. Start always returns 0: what the
// kernel refuses is logged and left out. Context: process, may sleep.
int tarn_mem_adapter_init(void);
void tarn_mem_adapter_exit(void);

// Page counts, in pages of 4 KiB, computed at each call from the kernel's counters, which are read
// without a lock. They cannot fail. Context: any that may take the kernel's swap lock; never sleep.

// The node's reserve: for each zone the sum of its largest lowmem reserve and its high watermark,
// but no more than its managed pages. Also stores the total in the node.
unsigned long tarn_get_totalreserve_pages(void);
// Free pages above the reserve, or all free pages if they do not exceed it.
unsigned long tarn_get_free_page(void);
// Page cache without swap cache, shmem and unevictable pages. Wraps around below 0.
unsigned long tarn_get_file_page(void);
// Anonymous pages on the LRU lists.
unsigned long tarn_get_anon_page(void);
// Swap pages in use; the swap device is zram.
unsigned long tarn_get_zram_page(void);
// 75 % of the swap size, or 20 % if swap is larger than RAM.
unsigned long tarn_cpa_get_zram_watermark_page(void);

// Returns whether every zone from zone_index down, except "DMA32", is above its high watermark for
// an allocation of 2^order pages and has a free block for it. Returns true for a negative index,
// false for a zone that does not exist or an order above 9. Context: any; takes no lock, so the
// answer may be stale on return.
bool tarn_zone_watermark_ok(enum zone_type zone_index, unsigned int order);
// Returns the zone index for allocation flags, 0 to 2. Context: any.
enum zone_type tarn_gfp_zone(gfp_t flags);

// Free memory on the caller's thread. Where the kernel lacks the function that does the work, they
// log that and do nothing. Context: process, may sleep and take long.

// Runs one pass of direct reclaim for an allocation of size bytes. Returns the pages reclaimed, 0
// if the kernel lacks the function. Clears the caller's PF_MEMALLOC, even if it was set before.
unsigned long tarn_reclaim(unsigned long size);
// Frees what the slab shrinkers can free.
void tarn_drop_slabcache(void);
// Drops the clean, unmapped page cache of every file system.
void tarn_drop_pagecache(void);
// Runs full synchronous compaction of all zones below the movable one. Ignores its arguments. The
// kernel counts such a pass, which is for no order in particular, as a failed one for every order:
// afterwards its own allocations may skip compaction of these zones for up to 64 attempts.
void tarn_compact(int, unsigned int, unsigned long);

// Kills expendable processes (oom_score_adj 600 and above), largest first, until the pages of the
// victims reach target or twenty passes are done. A process's size is its swapped pages if measure
// is nonzero, else its resident pages. Returns the victims' pages. Context: process; never sleeps.
unsigned long tarn_direct_kill(int measure, unsigned long target);
// Returns the first thread of a process that still has its memory, with its task lock held for the
// caller to release, or null if there is none. Context: inside an RCU read section; never sleeps.
struct task_struct *find_task_mm(struct task_struct *p);

// Maps size bytes of kernel addresses from virt on to the physical range from phys on, with the
// page attributes prot. All three are in bytes and multiples of 4096; other input is logged and
// changes nothing. A tag in the top byte of virt is ignored. Leaves blocks as they are that cannot
// be rewritten safely, and stops with a log line if there is no memory for a page table. Context:
// process, may sleep.
// What the caller must do:
// - Invalidate the range's translations in all TLBs afterwards. A CPU may use those from before the
//   call until then.
// - Expect a range that does not cover a block of 2 MiB in full to turn the whole block into pages
//   of ordinary memory. With memory tagging, no other page of that block may be in use under a tag:
//   its tags are no longer checked, and new ones are not stored.
// - Keep out of contiguous runs, of blocks or of pages, or change them as a whole: the entries
//   beside a changed one keep the contiguous bit, so a CPU may use one translation for the entire
//   run. A log line tells of a block that was split out of a run; the kernel warns of a page.
void tarn_change_secpage_range(phys_addr_t phys, unsigned long virt, unsigned long size,
			       pgprot_t prot);
// Sets or clears the platform's secure flag on each page of a table; null is ignored. Context: any.
void tarn_change_page_flag(struct sg_table *table, bool set);
// Map and unmap a heap buffer for a device, through the platform's IOMMU module if the device sits
// behind an IOMMU, else through the kernel. Map returns 0 or the mapper's negative error. Context:
// as the mapper requires.
int tarn_heap_dma_map(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
		      enum dma_data_direction dir, unsigned long attrs);
void tarn_heap_dma_unmap(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			 enum dma_data_direction dir, unsigned long attrs);

// The walk over the memory nodes, of which there is one. Not exported. Context: any.
pg_data_t *first_online_pgdat(void);
pg_data_t *next_online_pgdat(pg_data_t *pgdat);

// The channel to the low-memory killer daemon (lmkd).

// Opens the channel. Returns 0, even if it is open already, or -1 if it cannot create the socket.
// Context: process, may sleep.
int tarn_memory_netlink_init(void);
// Closes the channel and waits for notifications in flight. Context: process, may sleep.
void tarn_memory_netlink_exit(void);
// Sends lmkd a 32-bit value, which the channel does not interpret. Returns 0 once the message was
// handed to netlink, delivered or not, and -1 if the channel is closed or there is no memory for
// the message. Context: any; never sleeps.
int lmkd_notify(unsigned int value);

// Return whether the memory in use now has reached a leak threshold: unreclaimable slab must exceed
// its threshold, vmalloc memory must reach it. Context: any; never sleep.
bool tarn_should_dump_unreclaim_slab(void);
bool tarn_should_detect_slab_leak(void);
bool tarn_should_dump_vmalloc(void);
bool tarn_should_detect_vmalloc_leak(void);
// Set and get the thresholds, in KiB, that the mask of a struct memcheck_threshold at a user
// address selects. Return 0 or -EFAULT. Context: process, may sleep.
int tarn_process_set_th(void *user_arg);
int tarn_process_get_val(void *user_arg);
// Sets all four thresholds to a twelfth of RAM and returns 0. Exit leaves them as they are.
// Context: any.
int tarn_meminfo_parameter_init(void);
void tarn_meminfo_parameter_exit(void);

// Memory tracking. Context: process, may sleep.

// Creates the drain threads and attaches the slab and vmalloc hooks. Returns 0, even if they are
// running already, or a negative error with nothing left behind.
int tarn_memtrack_init(void);
// Stops tracking and frees what it recorded. Harmless if tracking was not started.
void tarn_memtrack_exit(void);
// Runs the struct memcheck_command at a user address. Returns 0 (even for a memory type that is
// neither slab nor vmalloc), -EFAULT, -EINVAL for an unknown command, or the tracker's own error.
int tarn_process_leak_detect(void *user_arg);
// Fills the readout buffer at a user address: a struct memcheck_info, followed by room for size
// bytes of text. Returns 0, -EFAULT, -EINVAL for a bad size or type, or -ENOMEM.
int tarn_process_leak_read(void *user_arg);

// Counts an event of another module. Types are 0 to 7; others are ignored. For GPL modules only.
// Context: any; never sleeps.
void tarn_memory_event_report(unsigned int type);

KERNEL_C_END
