// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/dma.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include <hosted/fault.h>
#include <hosted/judge.h>
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
	u64 next_address = 0x1000;
};

mapping_list &mappings()
{
	static mapping_list the_mappings;
	return the_mappings;
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
	m.next_address = 0x1000;
}

} // namespace hosted

using namespace hosted;

device::~device()
{
	if (mappings_of(*this) != 0)
		judge_stop("DMA", "a device goes with a mapping left");
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
		entry->dma_address = m.next_address + entry->offset;
		entry->dma_length = entry->length;
		m.next_address += (entry->offset + u64{entry->length} + 0xfff) & ~u64{0xfff};
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
		judge_stop("DMA", "an unmap that no mapping matches");
	m.live.erase(found);
}

bool helper_device_has_iommu(const device *dev)
{
	return dev->iommu != nullptr;
}
