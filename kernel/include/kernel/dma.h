/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/scatterlist.h>
#include <kernel/types.h>

struct device;
struct sg_table;

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

enum dma_data_direction { DMA_BIDIRECTIONAL, DMA_TO_DEVICE, DMA_FROM_DEVICE, DMA_NONE };

/* Maps a table for a device. Returns 0 or a negative error. Context: any. */
int dma_map_sgtable(struct device *dev, struct sg_table *table, enum dma_data_direction dir,
		    unsigned long attrs);
void dma_unmap_sg_attrs(struct device *dev, struct scatterlist *first, int entries,
			enum dma_data_direction dir, unsigned long attrs);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Whether the device's iommu pointer is set: it is behind an IOMMU, whichever driver serves it. */
bool helper_device_has_iommu(const struct device *dev);

KERNEL_C_END
