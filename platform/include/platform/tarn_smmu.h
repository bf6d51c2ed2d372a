/* SPDX-License-Identifier: GPL-2.0-only */
/* The platform's IOMMU module. */
#pragma once

#include <kernel/dma.h>

struct dma_buf;

KERNEL_C_BEGIN

int tarn_iommu_map_dmabuf(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			  enum dma_data_direction dir, unsigned long attrs);
void tarn_iommu_unmap_dmabuf(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			     enum dma_data_direction dir, unsigned long attrs);

KERNEL_C_END
