// SPDX-License-Identifier: GPL-2.0-only
// Memcheck: the table of trackers, and the commands that reach them.
//
// Locks: memcheck_lock, a mutex, serialises commands, start and stop of the trackers, and the
// rendering of a readout; it protects top_slub_name. It is the module's outermost lock: the
// parameter lock, the slab mutex and the rings' locks are taken inside it. User memory is never
// touched while it is held.
#pragma once

#include <kernel/mutex.h>
#include <kernel/types.h>
#include <uapi/tarn_memcheck.h>

#include "slub_track.h"

// The table's numbers of the trackers. Commands and readouts number them differently (MEMTYPE_...).
enum : u32 { TRACE_TYPE_SLUB = 0, TRACE_TYPE_VMALLOC = 1 };

// A request whose memory type has none of these bits is not looked at.
inline constexpr u32 memtype_mask = MEMTYPE_SLUB | MEMTYPE_VMALLOC;

// A tracker's operations. On, off, open and close return 0 or a negative error. Context: process,
// may sleep; called with memcheck_lock held.
struct page_stack_ops {
	int (*on)(const char *name);
	int (*off)(const char *name);
	int (*open)(int kind);
	int (*close)(void);
	// Fills at most max_records records (struct slub_stack_record) and returns their number.
	long (*read)(void *records, unsigned long max_records, int kind);
};

struct mem_trace_entry {
	u32 type;
	unsigned long (*get_stats)(void);
	unsigned long (*get_detail)(unsigned long a, unsigned long b);
	const page_stack_ops *ops;
};

KERNEL_C_BEGIN

extern struct mutex memcheck_lock;
// The target cache of the slab tracker, NUL-terminated.
extern char top_slub_name[slub_name_size] GUARDED_BY(memcheck_lock);
extern unsigned int memtrack_init_state;

extern const page_stack_ops slub_page_stack;
extern const page_stack_ops vmalloc_page_stack;

// Forward to an operation of the first table entry of a type. Without such an entry they return
// -EINVAL, or 0 for read, stats and detail. Context: process, may sleep.
int page_trace_on(u32 type, const char *name);
int page_trace_off(u32 type, const char *name);
int page_trace_open(u32 type, int kind);
int page_trace_close(u32 type);
long page_trace_read(u32 type, void *records, unsigned long max_records, int kind);
unsigned long get_mem_stats(u32 type);
unsigned long get_mem_detail(u32 type, unsigned long a, unsigned long b);

// Chooses the slab tracker's target: specified_target, or else the unreclaimable cache that takes
// the most memory. Returns 0. Context: process, may sleep.
int get_max_slub(void) REQUIRES(memcheck_lock);
// Copies slub_name_size bytes from name and makes the last one a NUL. Context: process, may sleep.
void memcheck_save_top_slub(const char *name) EXCLUDES(memcheck_lock);

// Run a command that is in kernel memory, with and without a check of its memory type. Context:
// process, may sleep.
int memcheck_do_command(struct memcheck_command *cmd) EXCLUDES(memcheck_lock);
int memcheck_do_kernel_command(struct memcheck_command *cmd) EXCLUDES(memcheck_lock);

// Runs the readout for a header that was checked. Returns 0, -EFAULT or -ENOMEM. Context: process,
// may sleep.
int memcheck_stack_read(void *user_arg, struct memcheck_info *info) EXCLUDES(memcheck_lock);

KERNEL_C_END
