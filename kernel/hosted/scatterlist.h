// SPDX-License-Identifier: GPL-2.0-only
// Scatter tables: entries in chunks, each chained to the next except for the last.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <hosted/mm.h>
#include <kernel/scatterlist.h>

// The kernel's layout: the low bits of link mark a chain (1) and the last entry (2).
struct scatterlist {
	unsigned long link;
	unsigned int offset;
	unsigned int length;
	u64 dma_address;
	unsigned int dma_length;
};

struct sg_table {
	scatterlist *sgl;
	unsigned int nents;
	unsigned int orig_nents;
};

namespace hosted
{

struct segment {
	page *first;
	unsigned int length;
	unsigned int offset = 0;
};

// A table with its entries. The pages are the caller's.
class scatter_table
{
public:
	// chunk: entries in a row, before a chain to the next ones.
	explicit scatter_table(const std::vector<segment> &segments, std::size_t chunk = 128);

	[[nodiscard]] sg_table *get()
	{
		return &table_;
	}

private:
	std::vector<std::unique_ptr<scatterlist[]>> chunks_;
	sg_table table_{};
};

} // namespace hosted
