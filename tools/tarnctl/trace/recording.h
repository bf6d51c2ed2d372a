// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

namespace tarn::trace
{

// What one reading of a trace says about the recording as a whole, losses included.
struct recording {
	std::uint64_t events = 0; // lines of slab events
	std::uint64_t allocations = 0;
	std::uint64_t frees = 0;
	std::uint64_t first_time = 0; // of slab events, in ns
	std::uint64_t last_time = 0;
	std::uint64_t stacks = 0; // blocks, of whichever event

	std::uint64_t lost = 0;		   // events that the kernel says are missing in the midst
	std::uint64_t overwritten = 0;	   // entries that were written before the first one here
	std::uint64_t damaged_lines = 0;   // passed over, a cut last line included
	std::uint64_t hidden_pointers = 0; // of the damaged ones: the kernel hid the address
	std::uint64_t first_damaged = 0;   // number of the first damaged line, if there is one
	std::string broken;		   // how the compressed file ends early; empty: it does not

	bool sound() const
	{
		return lost == 0 && overwritten == 0 && damaged_lines == 0;
	}
};

} // namespace tarn::trace
