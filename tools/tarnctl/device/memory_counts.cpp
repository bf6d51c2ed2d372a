// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/memory_counts.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <tarnctl/device/device_error.h>

namespace tarn
{

namespace
{

constexpr const char *shown_fields[] = {"MemFree", "Buffers",	   "Cached",
					"Slab",	   "SReclaimable", "SwapFree"};

std::uint64_t field(const std::string &meminfo, const std::string &name)
{
	std::istringstream lines(meminfo);
	std::uint64_t value = 0;

	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);
		std::string label;

		if (words >> label && label == name + ":" && words >> value)
			return value;
	}
	throw device_error(fmt::format("/proc/meminfo has no {}", name));
}

// "Node 0, zone   Normal   1   0   3 ..."
std::vector<zone_blocks> parse_zones(const std::string &buddyinfo)
{
	std::istringstream lines(buddyinfo);
	std::vector<zone_blocks> zones;

	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);
		std::string node, number, label;
		zone_blocks zone;

		if (!(words >> node >> number >> label >> zone.zone) || label != "zone")
			throw device_error("/proc/buddyinfo has an unknown format");
		zone.free.assign(std::istream_iterator<std::uint64_t>(words), {});
		zones.push_back(zone);
	}
	return zones;
}

std::string contents(const char *path)
{
	std::ifstream file(path);
	std::string text(std::istreambuf_iterator<char>(file), {});

	if (!file)
		throw device_error(fmt::format("cannot read {}", path));
	return text;
}

nlohmann::ordered_json counts_json(const memory_counts &counts, shown_counts shown)
{
	nlohmann::ordered_json object;

	for (const auto &[name, kib] : counts.kib)
		object[name] = kib;
	if (shown == shown_counts::memory_and_blocks) {
		for (const zone_blocks &zone : counts.zones)
			object["free_blocks"][zone.zone] = zone.free;
	}
	return object;
}

} // namespace

memory_counts parse_memory_counts(const std::string &meminfo, const std::string &buddyinfo)
{
	memory_counts counts;

	for (const char *name : shown_fields)
		counts.kib.emplace_back(name, field(meminfo, name));
	counts.zones = parse_zones(buddyinfo);
	return counts;
}

memory_counts read_memory_counts()
{
	return parse_memory_counts(contents("/proc/meminfo"), contents("/proc/buddyinfo"));
}

std::string change_text(const memory_counts &before, const memory_counts &after, shown_counts shown)
{
	std::string text;

	for (std::size_t i = 0; i < before.kib.size() && i < after.kib.size(); i++) {
		const auto &[name, old] = before.kib[i];
		const std::uint64_t now = after.kib[i].second;

		text += fmt::format("{} {} kB -> {} kB ({:+})\n", name, old, now,
				    static_cast<std::int64_t>(now - old));
	}
	if (shown == shown_counts::memory)
		return text;
	for (std::size_t i = 0; i < before.zones.size() && i < after.zones.size(); i++) {
		const zone_blocks &old = before.zones[i];

		text += fmt::format("{0} free blocks before: {1}\n{0} free blocks after:  {2}\n",
				    old.zone, fmt::join(old.free, " "),
				    fmt::join(after.zones[i].free, " "));
	}
	return text;
}

nlohmann::ordered_json change_json(const memory_counts &before, const memory_counts &after,
				   shown_counts shown)
{
	return {{"before", counts_json(before, shown)}, {"after", counts_json(after, shown)}};
}

} // namespace tarn
