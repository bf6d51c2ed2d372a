// SPDX-License-Identifier: GPL-2.0-only
// The memory services, on a device that is played here, and the counts around them.
#include <gtest/gtest.h>
#include <tarnctl/memory_counts.h>
#include <tarnctl/services.h>
#include <uapi/tarn_device.h>

namespace tarn
{

namespace
{

class fake_device : public control_device
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

constexpr const char *meminfo = "MemTotal:  900 kB\nMemFree:  100 kB\nBuffers: 7 kB\n"
				"Cached:  50 kB\nSwapCached:  8 kB\nSwapFree:  0 kB\n"
				"Slab:  40 kB\nSReclaimable:  30 kB\nSUnreclaim:  10 kB\n";
constexpr const char *buddyinfo = "Node 0, zone    DMA32      7      0     12 \n"
				  "Node 0, zone   Normal      0      1      2 \n";

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

TEST(memory_counts, are_read_by_their_whole_names)
{
	const memory_counts counts = parse_memory_counts(meminfo, buddyinfo);

	EXPECT_EQ(change_text(counts, counts, shown_counts::memory),
		  "MemFree 100 kB -> 100 kB (+0)\nBuffers 7 kB -> 7 kB (+0)\n"
		  "Cached 50 kB -> 50 kB (+0)\nSlab 40 kB -> 40 kB (+0)\n"
		  "SReclaimable 30 kB -> 30 kB (+0)\nSwapFree 0 kB -> 0 kB (+0)\n");
	EXPECT_THROW(parse_memory_counts("MemFree: 1 kB\n", buddyinfo), device_error);
	EXPECT_THROW(parse_memory_counts(meminfo, "no zones here\n"), device_error);
}

TEST(memory_counts, show_what_has_changed)
{
	const memory_counts before = parse_memory_counts(meminfo, buddyinfo);
	memory_counts after = before;

	after.kib[0].second = 99;
	after.zones[1].free = {3, 0, 4};
	const std::string text = change_text(before, after, shown_counts::memory_and_blocks);

	EXPECT_TRUE(text.starts_with("MemFree 100 kB -> 99 kB (-1)\n")) << text;
	EXPECT_TRUE(text.ends_with("Normal free blocks before: 0 1 2\n"
				   "Normal free blocks after:  3 0 4\n"))
		<< text;

	const auto json = change_json(before, after, shown_counts::memory_and_blocks);

	EXPECT_EQ(json["after"]["MemFree"], 99);
	EXPECT_EQ(json["before"]["free_blocks"]["DMA32"], nlohmann::ordered_json({7, 0, 12}));
	EXPECT_FALSE(
		change_json(before, after, shown_counts::memory)["after"].contains("free_blocks"));
}

} // namespace tarn
