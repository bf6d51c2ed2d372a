// SPDX-License-Identifier: GPL-2.0-only
// A ledger on a terminal of 80 columns.
#pragma once

#include <cstddef>
#include <string>

#include <tarnctl/ledger/ledger.h>
#include <tarnctl/ledger/report.h>

namespace tarn::ledger
{

struct screen_options {
	std::string trace;	// as the user wrote it, for the last line
	std::size_t top = 0;	// rows of each table; 0: as many as suit it
	std::size_t frames = 0; // of a stack; 0: all
	stack_order order = stack_order::bytes;
	bool stacks = false; // list what is held, stack by stack
};

std::string screen_text(const ledger &account, const moment &shown, const screen_options &options);

// The table of all caches.
std::string caches_text(const ledger &account, cache_order order, std::size_t top);

// What is lost, damaged or missing, in the order of weight; empty if nothing is.
std::string losses_text(const ledger &account);

} // namespace tarn::ledger
