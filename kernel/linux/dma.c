// SPDX-License-Identifier: GPL-2.0-only
#include <linux/device.h>
#include <linux/dma-mapping.h>

#include <kernel/dma.h>

bool helper_device_has_iommu(const struct device *dev)
{
	return dev->iommu != NULL;
}
