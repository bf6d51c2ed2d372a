// SPDX-License-Identifier: GPL-2.0-only
#include "tarn_smmu.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <platform/tarn_smmu.h>

namespace platform
{
namespace
{

struct smmu {
	std::mutex lock;
	std::vector<smmu_call> calls;
};

smmu &the_smmu()
{
	static smmu s;
	return s;
}

void note(const smmu_call &call)
{
	if (!helper_device_has_iommu(call.dev))
		hosted::judge_stop("tarn_smmu", "the device is not served by the IOMMU");
	const std::lock_guard guard(the_smmu().lock);
	the_smmu().calls.push_back(call);
}

} // namespace

std::vector<smmu_call> take_smmu_calls()
{
	const std::lock_guard guard(the_smmu().lock);
	return std::exchange(the_smmu().calls, {});
}

} // namespace platform

using namespace platform;

int tarn_iommu_map_dmabuf(device *dev, dma_buf *dmabuf, sg_table *table, dma_data_direction dir,
			  unsigned long attrs)
{
	hosted::might_sleep("tarn_iommu_map_dmabuf");
	note({smmu_call::verb::map, dev, dmabuf, table, dir, attrs});
	return hosted::should_fail("tarn_iommu_map_dmabuf") ? -ENOMEM : 0;
}

void tarn_iommu_unmap_dmabuf(device *dev, dma_buf *dmabuf, sg_table *table, dma_data_direction dir,
			     unsigned long attrs)
{
	hosted::might_sleep("tarn_iommu_unmap_dmabuf");
	note({smmu_call::verb::unmap, dev, dmabuf, table, dir, attrs});
}
