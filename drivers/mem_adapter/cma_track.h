// SPDX-License-Identifier: GPL-2.0-only
// CMA tracking, shared by its two halves: the record of what is allocated, and the reports.
#pragma once

#include <kernel/atomic.h>
#include <kernel/cma.h>
#include <kernel/debugfs.h>
#include <kernel/list.h>
#include <kernel/mm.h>
#include <kernel/spinlock.h>
#include <kernel/stackdepot.h>

// Areas that the table holds: the most that the platform has.
inline constexpr int max_cma_regions = 17;

// One range that was allocated and not released yet.
struct cma_stackinfo {
	char name[CMA_MAX_NAME]; // of its area
	unsigned long start_pfn;
	unsigned long end_pfn;	     // the last page
	depot_stack_handle_t handle; // 0 when no stack could be stored
	atomic_t ref;		     // the list's reference, until the release, and one a reader
	struct list_head node;
	bool released; // the list's reference is gone, only readers hold the record
};

inline struct cma_stackinfo *cma_stackinfo_of(struct list_head *node)
{
	return reinterpret_cast<struct cma_stackinfo *>(reinterpret_cast<char *>(node) -
							__builtin_offsetof(cma_stackinfo, node));
}

KERNEL_C_BEGIN

// Guards cmainfolist, and of each record its node, its release and the drop of its last reference.
// Interrupts off: the probes come in any context. Nothing is locked inside but the allocator's and
// the kernel log's locks.
extern raw_spinlock_t cma_lock;
// Records of all areas: new ones in front, in order of start_pfn behind a listing's sort.
extern struct list_head cmainfolist GUARDED_BY(cma_lock);

extern int cma_show_backtrace;
extern int cma_warn_limit_permillage;
// Freed under RCU when it is changed, so a probe reads it once and may use it to its end.
extern char *cma_target;

// The areas in the kernel's order. Written at start only.
extern struct cma *cma_regions[max_cma_regions];
extern int cma_region_count;

// Index of the first area of a name, or cma_region_count. Context: any.
int find_cma_region(const char *name);
// Chunks of an area that are taken. Context: any.
unsigned int cma_used_bits(const struct cma *area);
// Drops a reference; the last one takes the record out of the list and frees it.
void put_cma_stackinfo(struct cma_stackinfo *info) REQUIRES(cma_lock);

// Probes on the kernel's tracepoints of the same subject. Context: any; they never sleep.
cma_alloc_finish_probe vh_cma_alloc;
cma_release_probe vh_cma_release;

// Reports about one area, to the kernel log. pfn is the range tried last, count the pages asked
// for; both 0 where no allocation failed. Context: any; they never sleep.

// The summary line, and at most once in an interval the listing.
void show_stackinfos_ratelimit(const char *name, unsigned long pfn, unsigned long count)
	EXCLUDES(cma_lock);
void show_brief(const char *name, unsigned long pfn, unsigned long count);
// The area's records with their stacks, then the pages of the range tried last.
void show_stackinfos(const char *name, unsigned long pfn, unsigned long count) EXCLUDES(cma_lock);

// Sets up the rate limit and the file operations. Once, before anything else here.
void cma_report_init(void);
// One directory an area, each with the file "show"; remove waits for its readers.
void cma_report_create_files(void);
void cma_report_remove_files(void);

KERNEL_C_END
