// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/event_counts.h>

#include <cinttypes>
#include <cstdio>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace tarn
{

namespace
{

// "12,34": of allocations and of frees.
std::pair<std::uint64_t, std::uint64_t> parse(const std::string &name, const std::string &text)
{
	std::uint64_t alloc = 0;
	std::uint64_t free = 0;

	if (std::sscanf(text.c_str(), "%" SCNu64 ",%" SCNu64, &alloc, &free) != 2)
		throw std::invalid_argument(
			fmt::format("the module's parameter {} is not two numbers", name));
	return {alloc, free};
}

} // namespace

event_counts read_event_counts(const std::function<std::string(const std::string &name)> &read)
{
	const auto sum = [&read](const char *name) {
		const auto [alloc, free] = parse(name, read(name));

		return alloc + free;
	};
	event_counts events;

	std::tie(events.alloc, events.free) = parse("slub_recorded", read("slub_recorded"));
	events.no_room = sum("slub_dropped");
	events.no_memory = sum("slub_lost");
	events.own = sum("slub_skipped");
	return events;
}

std::string event_counts_text(const event_counts &events)
{
	std::string text = fmt::format("{} allocations and {} frees recorded, {} dropped",
				       events.alloc, events.free, events.dropped());
	const char *before = ": ";

	for (const auto &[count, what] : {std::pair{events.no_room, "by a full ring"},
					  {events.no_memory, "for want of memory"},
					  {events.own, "made for the tracker itself"}}) {
		if (count == 0)
			continue;
		text += fmt::format("{}{} {}", before, count, what);
		before = ", ";
	}
	return text;
}

} // namespace tarn
