// SPDX-License-Identifier: GPL-2.0-only
#include <kernel/bitmap.h>

#include <bit>
#include <climits>

// Bits may be set and cleared concurrently.
unsigned int __bitmap_weight(const unsigned long *bitmap, unsigned int bits)
{
	constexpr unsigned word_bits = sizeof(long) * CHAR_BIT;
	unsigned weight = 0;
	for (; bits >= word_bits; bits -= word_bits)
		weight += std::popcount(READ_ONCE(*bitmap++));
	if (bits != 0)
		weight += std::popcount(READ_ONCE(*bitmap) << (word_bits - bits));
	return weight;
}
