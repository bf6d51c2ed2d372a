// SPDX-License-Identifier: GPL-2.0-only
// The platform's IOMMU module; it records the calls it gets.
#pragma once

#include <vector>

#include <kernel/dma.h>

struct dma_buf;

namespace platform
{

struct smmu_call {
	enum class verb { map, unmap } what;
	const device *dev;
	const dma_buf *dmabuf;
	const sg_table *table;
	dma_data_direction dir;
	unsigned long attrs;

	bool operator==(const smmu_call &) const = default;
};

// Removes and returns the calls since the last call. Thread safe.
std::vector<smmu_call> take_smmu_calls();

} // namespace platform
