// SPDX-License-Identifier: GPL-2.0-only
// Devices and their mappings.
#pragma once

#include <vector>

#include <kernel/dma.h>

// A device outlives its mappings. It has an IOMMU-side pointer where the platform serves it.
struct device {
	explicit device(const void *iommu_side = nullptr) : iommu(iommu_side) {}
	~device();
	device(const device &) = delete;
	device &operator=(const device &) = delete;

	const void *const iommu;
};

struct dma_buf {
};

namespace hosted
{

// Tables that are mapped for the device now. Thread safe, as the mapping itself.
unsigned mappings_of(const device &dev);
// dma_map_sgtable and dma_unmap_sg_attrs since the reset.
unsigned long dma_calls();

// Stops the program if a device is left with a mapping.
void reset_dma();

} // namespace hosted
