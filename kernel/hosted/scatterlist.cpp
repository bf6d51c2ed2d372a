// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/scatterlist.h>

#include <algorithm>

#include <hosted/engine/judge.h>

namespace
{

constexpr unsigned long chain_bit = 1;
constexpr unsigned long end_bit = 2;
constexpr unsigned long link_bits = chain_bit | end_bit;

} // namespace

namespace hosted
{

scatter_table::scatter_table(const std::vector<segment> &segments, std::size_t chunk)
{
	scatterlist *entry = nullptr;
	for (std::size_t i = 0; i < segments.size(); i++, entry++) {
		if (i % chunk == 0) {
			const std::size_t count = std::min(chunk, segments.size() - i);
			chunks_.push_back(std::make_unique<scatterlist[]>(count + 1));
			if (entry)
				entry->link =
					reinterpret_cast<unsigned long>(chunks_.back().get()) |
					chain_bit;
			entry = chunks_.back().get();
		}
		entry->link = reinterpret_cast<unsigned long>(segments[i].first);
		entry->length = segments[i].length;
		entry->offset = segments[i].offset;
	}
	if (entry)
		entry[-1].link |= end_bit;
	table_.sgl = chunks_.empty() ? nullptr : chunks_.front().get();
	table_.orig_nents = static_cast<unsigned>(segments.size());
}

} // namespace hosted

using namespace hosted;

scatterlist *sg_next(scatterlist *entry)
{
	if (entry->link & end_bit)
		return nullptr;
	entry++;
	return entry->link & chain_bit ? reinterpret_cast<scatterlist *>(entry->link & ~link_bits)
				       : entry;
}

scatterlist *helper_sg_table_first(const sg_table *table)
{
	return table->sgl;
}

unsigned int helper_sg_table_entries(const sg_table *table)
{
	return table->orig_nents;
}

page *helper_sg_page(const scatterlist *entry)
{
	if (judging && (entry->link & chain_bit)) [[unlikely]]
		judge_stop("scatter table", "a chain is taken for an entry");
	return reinterpret_cast<page *>(entry->link & ~link_bits);
}

unsigned int helper_sg_length(const scatterlist *entry)
{
	return entry->length;
}
