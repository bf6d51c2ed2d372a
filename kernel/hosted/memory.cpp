// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/memory.h>

#include <hosted/cma.h>
#include <hosted/dma.h>
#include <hosted/kprobes.h>
#include <hosted/page_frames.h>
#include <hosted/pgtable.h>
#include <hosted/slab.h>
#include <hosted/stackdepot.h>
#include <hosted/tracepoint.h>
#include <hosted/vmalloc.h>
#include <hosted/vmstat.h>

void hosted::reset_memory()
{
	reset_tracepoints();
	reset_kprobes();
	reset_cma();
	reset_frames();
	reset_slab();
	reset_stackdepot();
	reset_vmalloc();
	reset_statistics();
	reset_page_tables();
	reset_dma();
}
