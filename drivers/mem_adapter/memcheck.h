// SPDX-License-Identifier: GPL-2.0-only
// Memcheck: the table of trackers, and the commands that reach them.
//
// Locks: memcheck_lock (mutex) serialises commands, start and stop of the trackers, and the
// rendering of a readout; it guards top_slub_name. It is the outermost lock of the module: the
// parameter lock, the slab mutex and the rings' locks are taken inside it. User memory is never
// touched under it.
#pragma once

#include <kernel/mutex.h>
#include <kernel/types.h>
#include <uapi/tarn_memcheck.h>

#include "slub_track.h"

// Trackers as the table numbers them, and as commands and readouts do (MEMTYPE_...): not the same.
enum : u32 { TRACE_TYPE_SLUB = 0, TRACE_TYPE_VMALLOC = 1 };

// Bits of a memory type of which at least one must be set for a request to be looked at.
inline constexpr u32 memtype_mask = MEMTYPE_SLUB | MEMTYPE_VMALLOC;

// A tracker's operations. Context: process, may sleep.
struct page_stack_ops {
	int (*on)(const char *name);
	int (*off)(const char *name);
	int (*open)(int kind);
	int (*close)(void);
	// Fills at most max_records records (struct slub_stack_record) and returns how many.
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

// Look up the first table entry of a type and forward to one of its operations. -EINVAL (read,
// stats and detail: 0) when there is none.
int page_trace_on(u32 type, const char *name);
int page_trace_off(u32 type, const char *name);
int page_trace_open(u32 type, int kind);
int page_trace_close(u32 type);
long page_trace_read(u32 type, void *records, unsigned long max_records, int kind);
unsigned long get_mem_stats(u32 type);
unsigned long get_mem_detail(u32 type, unsigned long a, unsigned long b);

// Copies slub_name_size bytes from name, the last of them made the NUL.
void memcheck_save_top_slub(const char *name) EXCLUDES(memcheck_lock);

// The command in kernel memory, with and without the check of its memory type.
int memcheck_do_command(struct memcheck_command *cmd) EXCLUDES(memcheck_lock);
int memcheck_do_kernel_command(struct memcheck_command *cmd) EXCLUDES(memcheck_lock);

// The readout proper, for a header that was checked.
int memcheck_stack_read(void *user_arg, struct memcheck_info *info) EXCLUDES(memcheck_lock);

KERNEL_C_END
