// SPDX-License-Identifier: GPL-2.0-only
// Devices and their mappings.
#pragma once

#include <vector>

#include <kernel/dma.h>

// A device must outlive its mappings. It has an IOMMU pointer if the platform serves it.
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

// Number of tables currently mapped for the device. Thread safe, like mapping itself.
unsigned mappings_of(const device &dev);
// Number of calls of dma_map_sgtable and dma_unmap_sg_attrs since the reset.
unsigned long dma_calls();

// Stops the program if a device still has a mapping.
void reset_dma();

} // namespace hosted
