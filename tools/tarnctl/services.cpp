// SPDX-License-Identifier: GPL-2.0-only
#include "services.h"

#include <fmt/format.h>
#include <uapi/tarn_device.h>

namespace tarn
{

namespace
{

void call(control_device &device, unsigned long request, void *argument, const char *what)
{
	if (const int ret = device.call(request, argument))
		throw device_error(fmt::format("{} failed: {}", what, reason(-ret)));
}

} // namespace

bool watermark_ok(control_device &device, int zone_index, unsigned int order)
{
	tarn_watermark request = {};

	request.zone_index = zone_index;
	request.order = order;
	call(device, TARN_IOC_WATERMARK, &request, "the watermark check");
	return request.ok != 0;
}

std::uint64_t reclaim(control_device &device, std::uint64_t bytes)
{
	tarn_reclaim_request request = {};

	request.bytes = bytes;
	call(device, TARN_IOC_RECLAIM, &request, "the reclaim");
	return request.pages;
}

void drop_slab(control_device &device)
{
	call(device, TARN_IOC_DROP_SLAB, nullptr, "the drop of slab objects");
}

void drop_page_cache(control_device &device)
{
	call(device, TARN_IOC_DROP_PAGE_CACHE, nullptr, "the drop of the page cache");
}

void compact(control_device &device)
{
	call(device, TARN_IOC_COMPACT, nullptr, "the compaction");
}

std::uint64_t kill_processes(control_device &device, process_size measure, std::uint64_t target)
{
	tarn_kill_request request = {};

	request.swapped = measure == process_size::swapped;
	request.target = target;
	call(device, TARN_IOC_KILL, &request, "the kill");
	return request.pages;
}

} // namespace tarn
