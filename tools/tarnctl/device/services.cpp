// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/services.h>

#include <fmt/format.h>
#include <uapi/tarn_device.h>

namespace tarn
{

namespace
{

void call(ioctl_device &device, unsigned long request, void *argument, const char *what)
{
	if (const int ret = device.call(request, argument))
		throw device_error(fmt::format("{} failed: {}", what, errno_message(-ret)));
}

} // namespace

bool watermark_ok(ioctl_device &device, int zone_index, unsigned int order)
{
	tarn_watermark request = {};

	request.zone_index = zone_index;
	request.order = order;
	call(device, TARN_IOC_WATERMARK, &request, "the watermark check");
	return request.ok != 0;
}

std::uint64_t reclaim(ioctl_device &device, std::uint64_t bytes)
{
	tarn_reclaim_request request = {};

	request.bytes = bytes;
	call(device, TARN_IOC_RECLAIM, &request, "reclaim");
	return request.pages;
}

void drop_slab(ioctl_device &device)
{
	call(device, TARN_IOC_DROP_SLAB, nullptr, "dropping slab objects");
}

void drop_page_cache(ioctl_device &device)
{
	call(device, TARN_IOC_DROP_PAGE_CACHE, nullptr, "dropping the page cache");
}

void compact(ioctl_device &device)
{
	call(device, TARN_IOC_COMPACT, nullptr, "compaction");
}

std::uint64_t kill_processes(ioctl_device &device, process_size measure, std::uint64_t target)
{
	tarn_kill_request request = {};

	request.swapped = measure == process_size::swapped;
	request.target = target;
	call(device, TARN_IOC_KILL, &request, "the kill");
	return request.pages;
}

} // namespace tarn
