// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/machine.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include <hosted/core.h>
#include <hosted/cpumask.h>
#include <hosted/debug_symbol.h>
#include <hosted/fs.h>
#include <hosted/judge.h>
#include <hosted/leftovers.h>
#include <hosted/memory.h>
#include <hosted/process.h>
#include <hosted/reclaim.h>
#include <hosted/workqueue.h>

namespace hosted
{
namespace
{

constinit std::atomic<bool> booted{false};

void reset()
{
	reset_core();
	reset_memory();
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
