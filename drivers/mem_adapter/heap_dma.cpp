// SPDX-License-Identifier: GPL-2.0-only
// Heap buffers: a flag on each of their pages, and their mapping for devices. No locks: the caller
// owns the buffer.
#include <kernel/dma.h>
#include <kernel/mm.h>
#include <kernel/scatterlist.h>
#include <platform/tarn_smmu.h>

#include "mem_adapter.h"

namespace
{

// The bit in a page's flags that the platform uses for secure pages.
constexpr unsigned int secure_page_flag = 27;

} // namespace

void tarn_change_page_flag(struct sg_table *table, bool set)
{
	if (!table)
		return;

	struct scatterlist *entry = helper_sg_table_first(table);

	for (unsigned int i = 0; i < helper_sg_table_entries(table); i++, entry = sg_next(entry)) {
		struct page *first = helper_sg_page(entry);
		const unsigned long pages = helper_sg_length(entry) >> KERNEL_PAGE_SHIFT;

		for (unsigned long n = 0; n < pages; n++) {
			struct page *page = helper_page_behind(first, n);

			if (set)
				helper_page_set_flag(page, secure_page_flag);
			else
				helper_page_clear_flag(page, secure_page_flag);
		}
	}
}

int tarn_heap_dma_map(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
		      enum dma_data_direction dir, unsigned long attrs)
{
	if (helper_device_has_iommu(dev))
		return tarn_iommu_map_dmabuf(dev, dmabuf, table, dir, attrs);
	return dma_map_sgtable(dev, table, dir, attrs);
}

void tarn_heap_dma_unmap(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			 enum dma_data_direction dir, unsigned long attrs)
{
	if (helper_device_has_iommu(dev))
		tarn_iommu_unmap_dmabuf(dev, dmabuf, table, dir, attrs);
	else
		dma_unmap_sg_attrs(dev, helper_sg_table_first(table),
				   static_cast<int>(helper_sg_table_entries(table)), dir, attrs);
}
