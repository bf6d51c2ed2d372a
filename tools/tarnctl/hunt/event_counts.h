// SPDX-License-Identifier: GPL-2.0-only
// How many events of its target the module recorded, and how many it did not.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tarn
{

// Since tracking was last switched on, allocations and frees together unless a name says otherwise.
struct event_counts {
	std::uint64_t alloc = 0; // recorded
	std::uint64_t free = 0;
	std::uint64_t no_room = 0;   // dropped by a full ring
	std::uint64_t no_memory = 0; // dropped for want of a tree node
	std::uint64_t own = 0;	     // left out: made for the tracker itself

	[[nodiscard]] std::uint64_t dropped() const
	{
		return no_room + no_memory + own;
	}
	[[nodiscard]] std::uint64_t all() const
	{
		return alloc + free + dropped();
	}
};

// Reads the module's parameters with a function that returns the text of one by its name. Throws
// std::invalid_argument if a text is not two numbers.
event_counts read_event_counts(const std::function<std::string(const std::string &name)> &read);

// One line, without its end.
std::string event_counts_text(const event_counts &events);

} // namespace tarn
