// SPDX-License-Identifier: GPL-2.0-only
// Usage: watermarks TOLERANCE
// Compares the adapter's watermark check, for all zones and the orders 0 to 10, with the same rule
// computed from /proc/zoneinfo and /proc/pagetypeinfo (/proc/buddyinfo by type of block). A running
// system changes between the readings, so an answer counts only if the states before and after it
// agree and no zone is within TOLERANCE pages of its mark. Prints how many answers counted, by
// result.
#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "memcheck_file.h"

namespace
{

constexpr unsigned int orders = 11;
constexpr unsigned int searched_orders = 10;

struct zone {
	std::string name;
	long free = 0;
	long high = 0;
	long free_cma = 0;
	long high_atomic = 0;
	std::vector<long> reserve;			 // by the asking zone's index
	std::map<std::string, std::vector<long>> blocks; // by type, of each order
};

std::ifstream open_file(const char *path)
{
	std::ifstream file(path);

	if (!file)
		lab::fail("cannot read %s", path);
	return file;
}

std::vector<zone> read_zoneinfo()
{
	std::ifstream file = open_file("/proc/zoneinfo");
	std::vector<zone> zones;

	for (std::string line; std::getline(file, line);) {
		std::replace_if(
			line.begin(), line.end(),
			[](char c) { return c == ',' || c == '(' || c == ')' || c == ':'; }, ' ');
		std::istringstream words(line);
		std::string label, next;

		words >> label;
		if (label == "Node") {
			zones.emplace_back();
			words >> next >> next >> zones.back().name;
		} else if (label == "pages" && words >> next && next == "free") {
			words >> zones.back().free;
		} else if (label == "high" && zones.back().high == 0) {
			words >> zones.back().high;
		} else if (label == "nr_free_cma") {
			words >> zones.back().free_cma;
		} else if (label == "protection") {
			for (long pages; words >> pages;)
				zones.back().reserve.push_back(pages);
		}
	}
	return zones;
}

zone *find(std::vector<zone> &zones, const std::string &name)
{
	const auto found = std::find_if(zones.begin(), zones.end(),
					[&name](const zone &z) { return z.name == name; });

	return found == zones.end() ? nullptr : &*found;
}

void add_blocks(std::vector<zone> &zones)
{
	std::ifstream file = open_file("/proc/pagetypeinfo");
	std::vector<std::string> types;
	long pages_per_block = 0;

	for (std::string line; std::getline(file, line);) {
		std::replace(line.begin(), line.end(), ',', ' ');
		std::istringstream words(line);
		std::string label, number, name, type;

		words >> label;
		if (label == "Pages")
			words >> label >> label >> pages_per_block;
		if (label == "Number") {
			// "Number of blocks type Unmovable Movable ..."
			words >> label >> label >> label;
			for (types.clear(); words >> type;)
				types.push_back(type);
		}
		if (label != "Node" || !(words >> number >> label >> name))
			continue;
		zone *z = find(zones, name);

		if (!z)
			lab::fail("no zone %s", name.c_str());
		if (types.empty()) {
			words >> label >> type;
			for (std::string count; words >> count;) // may be ">100000"
				z->blocks[type].push_back(
					std::atol(count.c_str() + (count[0] == '>')));
			continue;
		}
		for (const std::string &of : types) {
			long blocks = 0;

			if (words >> blocks && of == "HighAtomic")
				z->high_atomic = blocks * pages_per_block;
		}
	}
}

std::vector<zone> read_zones()
{
	std::vector<zone> zones = read_zoneinfo();

	add_blocks(zones);
	return zones;
}

bool has_block(const zone &z, unsigned int order)
{
	for (const char *type : {"Unmovable", "Movable", "Reclaimable"}) {
		const auto found = z.blocks.find(type);

		for (unsigned int o = order; found != z.blocks.end() && o < searched_orders; o++) {
			if (o < found->second.size() && found->second[o] > 0)
				return true;
		}
	}
	return false;
}

// No answer if it is too close.
std::optional<bool> has_room(const std::vector<zone> &zones, int index, unsigned int order,
			     long tolerance)
{
	bool close = false;

	for (int i = index; i >= 0; i--) {
		const zone &z = zones[i];

		if (z.name == "DMA32")
			continue;
		if (order >= searched_orders)
			return false;
		const long block = 1L << order;
		const long above = z.free - (block - 1) - z.high_atomic - z.free_cma - z.high -
				   block - z.reserve[index];

		if (above < -tolerance)
			return false;
		// An empty zone does not change.
		if (z.free == 0 && z.high == 0)
			return false;
		if (above <= tolerance)
			close = true;
		else if (order != 0 && !has_block(z, order))
			return false;
	}
	return close ? std::nullopt : std::optional(true);
}

} // namespace

int main(int argc, char **argv)
{
	const long tolerance = argc > 1 ? std::atol(argv[1]) : 0;
	const lab::memcheck_file device;
	const int zones = static_cast<int>(read_zones().size());
	int yes = 0, no = 0, open = 0, wrong = 0;

	for (int index = -1; index < zones; index++) {
		for (unsigned int order = 0; order < orders; order++) {
			tarn_watermark request = {index, order, 0, 0};
			const auto before = has_room(read_zones(), index, order, tolerance);
			const int error = device.call(TARN_IOC_WATERMARK, &request);
			const auto after = has_room(read_zones(), index, order, tolerance);

			if (error)
				lab::fail("zone %d: %s", index, std::strerror(error));
			if (!before || before != after) {
				open++;
			} else if (*before != (request.ok != 0)) {
				std::printf("zone %d, order %u: adapter %u, kernel %d\n", index,
					    order, request.ok, *before);
				wrong++;
			} else {
				(*before ? yes : no)++;
			}
		}
	}
	tarn_watermark beyond = {zones, 0, 0, 0};

	if (device.call(TARN_IOC_WATERMARK, &beyond) != EINVAL)
		lab::fail("a zone that does not exist is accepted");
	std::printf("yes %d no %d open %d\n", yes, no, open);
	return wrong != 0;
}
