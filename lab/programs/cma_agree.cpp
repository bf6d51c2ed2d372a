// SPDX-License-Identifier: GPL-2.0-only
// cma_agree AREA BEFORE: checks that the records that the adapter listed for an area, in the kernel
// log on standard input, cover exactly the bits set in the area's bitmap. Bits that are also set in
// BEFORE, a copy of the bitmap from before the adapter was loaded, are left out. Only the last
// listing counts.
#include <cstdint>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "failure.h"

namespace
{

std::string directory;

std::uint64_t number(const char *name)
{
	std::ifstream file(directory + name);
	std::uint64_t value = 0;

	if (!(file >> value))
		lab::fail("%s%s does not exist", directory.c_str(), name);
	return value;
}

// The kernel prints the bitmap as decimal words of 32 bits.
std::set<std::uint64_t> bits_of(const std::string &bitmap)
{
	std::ifstream file(bitmap);
	std::set<std::uint64_t> bits;
	std::uint64_t word = 0;

	for (std::uint64_t at = 0; file >> word; at += 32)
		for (unsigned bit = 0; bit < 32; bit++)
			if (word >> bit & 1)
				bits.insert(at + bit);
	return bits;
}

std::set<std::uint64_t> listed_bits(const std::string &area)
{
	const std::uint64_t base = number("base_pfn");
	const unsigned order = number("order_per_bit");
	std::set<std::uint64_t> bits;
	std::string line;

	while (std::getline(std::cin, line)) {
		if (line.find("] show_brief:") != std::string::npos)
			bits.clear();

		const std::size_t at = line.find("] show_info:");
		const std::size_t name = line.find(' ' + area + " [", at);
		unsigned long start = 0;
		unsigned long end = 0;
		unsigned long count = 0;

		if (at == std::string::npos || name == std::string::npos)
			continue;
		if (std::sscanf(line.c_str() + name + area.size() + 2, "[%lu-%lu] count:%lu",
				&start, &end, &count) != 3 ||
		    end - start + 1 != count)
			lab::fail("malformed record: %s", line.c_str());
		for (std::uint64_t bit = (start - base) >> order; bit <= (end - base) >> order;
		     bit++)
			if (!bits.insert(bit).second)
				lab::fail("bit %lu is listed twice", bit);
	}
	return bits;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc != 3)
		lab::fail("usage: cma_agree AREA BEFORE <LOG");
	directory = std::string("/sys/kernel/debug/cma/") + argv[1] + '/';

	const std::set<std::uint64_t> listed = listed_bits(argv[1]);
	std::set<std::uint64_t> set = bits_of(directory + "bitmap");

	if (set.size() << number("order_per_bit") != number("used"))
		lab::fail("the kernel says that %lu pages are used", number("used"));
	for (const std::uint64_t bit : bits_of(argv[2]))
		if (set.erase(bit) == 0)
			lab::fail("bit %lu was set before and is clear now", bit);
	for (const std::uint64_t bit : set)
		if (!listed.contains(bit))
			lab::fail("bit %lu is set but in no record", bit);
	for (const std::uint64_t bit : listed)
		if (!set.contains(bit))
			lab::fail("bit %lu is in a record but not set", bit);
	std::printf("%zu bits\n", set.size());
	return 0;
}
