// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/memory.h>

#include <hosted/slab.h>
#include <hosted/stackdepot.h>
#include <hosted/tracepoint.h>
#include <hosted/vmalloc.h>
#include <hosted/vmstat.h>

void hosted::reset_memory()
{
	reset_tracepoints();
	reset_slab();
	reset_stackdepot();
	reset_vmalloc();
	reset_statistics();
}
