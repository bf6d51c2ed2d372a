// SPDX-License-Identifier: GPL-2.0-only
// Whether a readout tells who holds objects: a task's allocations less its frees are what it holds
// only if the frees of the cache can be laid at a task's door.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tarnctl/hunt/event_counts.h>
#include <tarnctl/hunt/readout.h>

namespace tarn
{

// A task name with what the readout counts for it. Both counts are lower bounds: pairs of stack and
// task that came less than 50 times are left out.
struct task_balance {
	std::string comm; // empty: interrupts
	std::int64_t pid_min = 0;
	std::int64_t pid_max = 0; // others' pids may lie in between
	std::int64_t allocated = 0;
	std::int64_t freed = 0;

	std::int64_t difference() const
	{
		return allocated - freed;
	}
};

// The tasks of a readout, those of the largest difference first.
std::vector<task_balance> task_balances(const readout &callers);

// Why the differences are not what the tasks hold, as a part of a sentence; empty if they are.
// Grown: how many more objects of the cache lived after the tracking than before; events: what the
// module recorded and dropped; where that is known.
std::string why_uncertain(const readout &callers, std::optional<std::int64_t> grown,
			  const std::optional<event_counts> &events = {});

} // namespace tarn
