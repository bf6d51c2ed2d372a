// SPDX-License-Identifier: GPL-2.0-only
// The memory services, on a fake device.
#include <gtest/gtest.h>
#include <tarnctl/device/services.h>
#include <uapi/tarn_device.h>

namespace tarn
{

namespace
{

class fake_device : public ioctl_device
{
public:
	int call(unsigned long request, void *argument) override
	{
		last = request;
		if (request == TARN_IOC_WATERMARK) {
			auto *record = static_cast<tarn_watermark *>(argument);

			record->ok = record->zone_index == -1 && record->order == 10;
		} else if (request == TARN_IOC_RECLAIM) {
			auto *record = static_cast<tarn_reclaim_request *>(argument);

			record->pages = record->bytes / 4096;
		} else if (request == TARN_IOC_KILL) {
			auto *record = static_cast<tarn_kill_request *>(argument);

			record->pages = record->target + record->swapped;
		}
		return result;
	}

	unsigned long last = 0;
	int result = 0;
};

} // namespace

TEST(services, pass_on_what_is_asked_and_what_came_of_it)
{
	fake_device device;

	EXPECT_TRUE(watermark_ok(device, -1, 10));
	EXPECT_FALSE(watermark_ok(device, 1, 10));
	EXPECT_EQ(reclaim(device, 1ULL << 40), 1ULL << 28);
	EXPECT_EQ(kill_processes(device, process_size::resident, 1ULL << 33), 1ULL << 33);
	EXPECT_EQ(kill_processes(device, process_size::swapped, 5), 6U);
	drop_slab(device);
	EXPECT_EQ(device.last, TARN_IOC_DROP_SLAB);
	drop_page_cache(device);
	EXPECT_EQ(device.last, TARN_IOC_DROP_PAGE_CACHE);
	compact(device);
	EXPECT_EQ(device.last, TARN_IOC_COMPACT);
}

TEST(services, of_a_device_that_refuses_are_errors)
{
	fake_device device;

	device.result = -22;
	EXPECT_THROW(watermark_ok(device, 9, 0), device_error);
	EXPECT_THROW(reclaim(device, 0), device_error);
	EXPECT_THROW(drop_slab(device), device_error);
	EXPECT_THROW(compact(device), device_error);
	EXPECT_THROW(kill_processes(device, process_size::resident, 0), device_error);
}

} // namespace tarn
