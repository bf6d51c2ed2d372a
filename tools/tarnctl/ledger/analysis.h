// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include <tarnctl/ledger/ledger.h>
#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/stacks.h>

namespace tarn::ledger
{

// A trace and the account of it.
struct analysis {
	trace::cache_index index;
	trace::stack_table stacks;
	std::unique_ptr<ledger> account;
};

// Reads the trace: once for its caches, once for the account, and once more where the peak is to be
// shown. Throws trace::trace_error.
std::unique_ptr<analysis> analyse(const trace::trace_path &path, const selection &wanted,
				  const moment &shown);

} // namespace tarn::ledger
