// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/machine.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include <hosted/cma.h>
#include <hosted/cpumask.h>
#include <hosted/debug_symbol.h>
#include <hosted/dma.h>
#include <hosted/engine/clock.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/log.h>
#include <hosted/fs.h>
#include <hosted/gfp.h>
#include <hosted/kprobes.h>
#include <hosted/pgtable.h>
#include <hosted/physmem.h>
#include <hosted/process.h>
#include <hosted/reclaim.h>
#include <hosted/slab.h>
#include <hosted/stackdepot.h>
#include <hosted/tracepoint.h>
#include <hosted/vmalloc.h>
#include <hosted/vmstat.h>
#include <hosted/workqueue.h>

namespace hosted
{
namespace
{

constinit std::atomic<bool> booted{false};

// Back to a machine just booted. Stops the program if the module left anything.
void reset()
{
	reset_clock();
	(void)take_log();
	clear_taint();
	reset_tracepoints();
	reset_kprobes();
	reset_dma();
	reset_cma();
	reset_slab();
	reset_stackdepot();
	reset_vmalloc();
	reset_statistics();
	// Slabs lie in it, and the first table will: after the slab caches, before the page tables.
	reset_physmem();
	reset_page_allocator();
	reset_page_tables();
	reset_fs();
	reset_reclaim();
	reset_processes();
	reset_cpus();
	reset_debug_symbols();
}

} // namespace

machine::machine()
{
	if (booted.exchange(true))
		throw std::logic_error("a machine runs already");
	reset();
}

machine::~machine()
{
	stop_workers();
	std::string left;
	for (const std::string &line : leftovers())
		left += "\n  " + line;
	if (!left.empty())
		judge_stop("left behind at shutdown", left);
	reset();
	booted = false;
}

} // namespace hosted
