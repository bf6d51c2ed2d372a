// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/dma.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include <hosted/engine/address_range.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/scatterlist.h>

namespace hosted
{
namespace
{

struct mapping {
	const device *dev;
	const scatterlist *first;
	unsigned entries;
	dma_data_direction dir;
	unsigned long attrs;

	bool operator==(const mapping &) const = default;
};

struct mapping_list {
	std::mutex lock;
	std::vector<mapping> live;
	unsigned long calls = 0;
};

mapping_list &mappings()
{
	static mapping_list the_mappings;
	return the_mappings;
}

// A device must not get at free pages.
void check_pages(const page *first, u64 bytes)
{
	for (u64 at = 0; at < bytes; at += page_size)
		check_owned(first[at / page_size], "device mapping");
}

} // namespace

unsigned mappings_of(const device &dev)
{
	mapping_list &m = mappings();
	const std::lock_guard guard(m.lock);
	return static_cast<unsigned>(std::ranges::count(m.live, &dev, &mapping::dev));
}

unsigned long dma_calls()
{
	const std::lock_guard guard(mappings().lock);
	return mappings().calls;
}

void reset_dma()
{
	mapping_list &m = mappings();
	const std::lock_guard guard(m.lock);
	if (!m.live.empty())
		judge_stop("DMA", "a device is left with a mapping");
	m.calls = 0;
}

} // namespace hosted

using namespace hosted;

device::~device()
{
	if (mappings_of(*this) != 0)
		judge_stop("DMA", "a device is destroyed while it is mapped");
}

int dma_map_sgtable(device *dev, sg_table *table, dma_data_direction dir, unsigned long attrs)
{
	if (dir < DMA_BIDIRECTIONAL || dir >= DMA_NONE)
		judge_stop("DMA", "a mapping without a direction");
	mapping_list &m = mappings();
	const std::lock_guard guard(m.lock);
	m.calls++;
	if (should_fail("dma_map_sgtable"))
		return -EIO;
	scatterlist *entry = table->sgl;
	for (unsigned i = 0; i < table->orig_nents; i++, entry = sg_next(entry)) {
		const page *first = helper_sg_page(entry);
		check_pages(first, entry->offset + u64{entry->length});
		entry->dma_address = page_to_phys(*first) + entry->offset;
		entry->dma_length = entry->length;
	}
	table->nents = table->orig_nents;
	m.live.push_back({dev, table->sgl, table->orig_nents, dir, attrs});
	return 0;
}

void dma_unmap_sg_attrs(device *dev, scatterlist *first, int entries, dma_data_direction dir,
			unsigned long attrs)
{
	mapping_list &m = mappings();
	const std::lock_guard guard(m.lock);
	m.calls++;
	const mapping wanted{dev, first, static_cast<unsigned>(entries), dir, attrs};
	const auto found = std::ranges::find(m.live, wanted);
	if (found == m.live.end())
		judge_stop("DMA", "no mapping matches the unmap");
	m.live.erase(found);
}

bool helper_device_has_iommu(const device *dev)
{
	return dev->iommu != nullptr;
}
