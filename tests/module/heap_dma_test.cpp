// SPDX-License-Identifier: GPL-2.0-only
// Page flags and device mappings of heap buffers.
#include "fixture.h"

#include <hosted/dma.h>
#include <hosted/engine/context.h>
#include <hosted/scatterlist.h>
#include <mem_adapter.h>
#include <platform/hosted/tarn_smmu.h>

using namespace hosted;
using namespace module_tests;
using platform::smmu_call;
using testing::ElementsAre;

namespace
{

class heap_dma : public module_test
{
protected:
	static constexpr unsigned long secure_flag = 1UL << 27;

	void change(scatter_table &table, bool set)
	{
		exported<decltype(tarn_change_page_flag)>("tarn_change_page_flag")(table.get(),
										   set);
	}
	// One character per page: x if it has the flag, ? if other flags changed.
	[[nodiscard]] std::string flagged() const
	{
		std::string text;
		for (const page &p : pages)
			text += p.flags == (other_flags | secure_flag) ? 'x'
				: p.flags == other_flags	       ? '.'
								       : '?';
		return text;
	}

	static constexpr unsigned long other_flags = 0x4000000002000004;
	std::span<page> pages = make_pages(12);

	decltype(tarn_heap_dma_map) *map =
		exported<decltype(tarn_heap_dma_map)>("tarn_heap_dma_map");
	decltype(tarn_heap_dma_unmap) *unmap =
		exported<decltype(tarn_heap_dma_unmap)>("tarn_heap_dma_unmap");
};

TEST_F(heap_dma, the_flag_changes_on_whole_pages_along_the_chain)
{
	for (page &p : pages)
		p.flags = other_flags;
	scatter_table table({{&pages[0], 8191, 100}, // the offset does not count
			     {&pages[2], 4095},
			     {&pages[3], 3 * 4096, 4000},
			     {&pages[7], 0},
			     {&pages[8], 2 * 4096},
			     {&pages[11], 4096}},
			    2);
	change(table, true);
	EXPECT_EQ(flagged(), "x..xxx..xx.x");
	scatter_table part({{&pages[4], 4096}, {&pages[6], 4096}});
	change(part, false);
	EXPECT_EQ(flagged(), "x..x.x..xx.x");
	change(table, false);
	EXPECT_EQ(flagged(), "............");

	scatter_table empty({});
	change(empty, true);
	exported<decltype(tarn_change_page_flag)>("tarn_change_page_flag")(nullptr, true);
	table.get()->nents = 1; // a mapping's own count does not matter
	table.get()->orig_nents = 4;
	const context_scope in(context_kind::hardirq);
	change(table, true);
	EXPECT_EQ(flagged(), "x..xxx......");
}

TEST_F(heap_dma, a_device_without_an_iommu_maps_through_the_kernel)
{
	device dev;
	dma_buf buffer;
	scatter_table table({{&pages[0], 4096}, {&pages[2], 8192}, {&pages[5], 4096}}, 2);
	table.get()->nents = 1;
	{
		const fault_scope fault("dma_map_sgtable");
		EXPECT_EQ(map(&dev, &buffer, table.get(), DMA_TO_DEVICE, 0x20), -EIO);
		EXPECT_EQ(fault.calls().size(), 1U);
	}
	EXPECT_EQ(map(&dev, nullptr, table.get(), DMA_TO_DEVICE, 0x20), 0);
	EXPECT_EQ(mappings_of(dev), 1U);
	table.get()->nents = 1; // the device merged them
	unmap(&dev, &buffer, table.get(), DMA_TO_DEVICE, 0x20);
	EXPECT_EQ(mappings_of(dev), 0U);
	EXPECT_TRUE(platform::take_smmu_calls().empty());
}

TEST_F(heap_dma, a_device_behind_an_iommu_maps_through_the_platforms_module)
{
	const int iommu_side = 0;
	device dev(&iommu_side);
	dma_buf buffer;
	scatter_table table({{&pages[0], 4096}});
	{
		const fault_scope fault("tarn_iommu_map_dmabuf", 2);
		EXPECT_EQ(map(&dev, &buffer, table.get(), DMA_FROM_DEVICE, 3), 0);
		EXPECT_EQ(map(&dev, &buffer, table.get(), DMA_BIDIRECTIONAL, 1UL << 40), -ENOMEM);
	}
	unmap(&dev, &buffer, table.get(), DMA_FROM_DEVICE, 3);
	using verb = smmu_call::verb;
	EXPECT_THAT(
		platform::take_smmu_calls(),
		ElementsAre(
			smmu_call{verb::map, &dev, &buffer, table.get(), DMA_FROM_DEVICE, 3},
			smmu_call{verb::map, &dev, &buffer, table.get(), DMA_BIDIRECTIONAL,
				  1UL << 40},
			smmu_call{verb::unmap, &dev, &buffer, table.get(), DMA_FROM_DEVICE, 3}));
	EXPECT_EQ(dma_calls(), 0U);
}

} // namespace
