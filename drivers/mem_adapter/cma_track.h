// SPDX-License-Identifier: GPL-2.0-only
// CMA tracking: what its parts share, the records of allocations (cma_track.cpp), their index
// (cma_index.cpp) and the reports about them (cma_report.cpp).
//
// Locks: cma_lock, a raw spinlock, protects cmainfolist and the index, and of each record its links
// and the drop of its last reference. Taken with interrupts off, since the probes run in any
// context, and dropped after cma_records_at_once records. Inside it only the allocator's and the
// kernel log's locks are taken.
#pragma once

#include <kernel/atomic.h>
#include <kernel/cma.h>
#include <kernel/core_tracepoints.h>
#include <kernel/debugfs.h>
#include <kernel/list.h>
#include <kernel/mm.h>
#include <kernel/rbtree.h>
#include <kernel/spinlock.h>
#include <kernel/stackdepot.h>

// The number of areas in the table: as many as the platform can have.
inline constexpr int max_cma_regions = 17;

// How many records are visited or freed under the lock at a time: a few microseconds.
inline constexpr int cma_records_at_once = 16;

// A range that is allocated and not released yet. What a walk down the index reads is together in
// one cache line.
struct cma_stackinfo {
	char name[CMA_MAX_NAME]; // the area's
	unsigned long start_pfn;
	unsigned long end_pfn;	     // the last page
	struct rb_node tree;	     // in the index, until the release
	u64 serial;		     // counts allocations
	unsigned long subtree_last;  // of the node and all below it, the last page
	u64 subtree_newest;	     // and the highest serial number
	depot_stack_handle_t handle; // 0 if no stack could be stored
	atomic_t ref;		     // one for the list, until the release, and one per reader
	struct list_head node;
};

inline struct cma_stackinfo *cma_stackinfo_of(struct list_head *node)
{
	return reinterpret_cast<struct cma_stackinfo *>(reinterpret_cast<char *>(node) -
							__builtin_offsetof(cma_stackinfo, node));
}

KERNEL_C_BEGIN

extern raw_spinlock_t cma_lock;
// The records of all areas, newest first, and those released ones that a reader still holds.
extern struct list_head cmainfolist GUARDED_BY(cma_lock);

extern int cma_show_backtrace;
// Ranges allocated since the module was loaded that there was no memory to record.
extern unsigned int cma_unrecorded;
extern int cma_warn_limit_permillage;
// A change frees the old string only after an RCU grace period: a probe reads the pointer once and
// may use the string until it returns.
extern char *cma_target;

// The areas in the kernel's order. Written only at start.
extern struct cma *cma_regions[max_cma_regions];
extern int cma_region_count;

// Returns the index of the first area of a name, or cma_region_count. Context: any; never sleeps.
int find_cma_region(const char *name);
// Returns the number of bits that are set in an area's bitmap, each for 2^order_per_bit pages.
// Context: any; never sleeps. Tolerated race: reads the bitmap without the area's lock.
unsigned int cma_used_bits(const struct cma *area);
// Drops a reference. The last one takes the record out of the list and frees it. Context: any;
// never sleeps.
void put_cma_stackinfo(struct cma_stackinfo *info) REQUIRES(cma_lock);

// Probes on the kernel's tracepoints cma_alloc_finish and cma_release. Context: any; never sleep.
cma_alloc_finish_probe vh_cma_alloc;
cma_release_probe vh_cma_release;

// Reports about one area, to the kernel log. pfn is the first page of the range that was tried
// last, count the number of pages asked for; both are 0 if no allocation failed. Context: any;
// never sleep.

// The summary line and, at most once per interval, the listing.
void show_stackinfos_ratelimit(const char *name, unsigned long pfn, unsigned long count)
	EXCLUDES(cma_lock);
// The summary line.
void show_brief(const char *name, unsigned long pfn, unsigned long count);
// The listing: the area's records with their stacks, then the pages of the range tried last.
void show_stackinfos(const char *name, unsigned long pfn, unsigned long count) EXCLUDES(cma_lock);

// Sets up the rate limit and the file operations. Call once, before any other function here.
void cma_report_init(void);
// Create and remove a directory per area in debugfs, each with the file "show". Remove waits for
// readers. Context: process, may sleep.
void cma_report_create_files(void);
void cma_report_remove_files(void);

KERNEL_C_END
