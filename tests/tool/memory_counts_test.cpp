// SPDX-License-Identifier: GPL-2.0-only
// The counts that tarnctl shows around a memory service.
#include <gtest/gtest.h>
#include <tarnctl/device/ioctl_device.h>
#include <tarnctl/device/memory_counts.h>

namespace tarn
{

namespace
{

constexpr const char *meminfo = "MemTotal:  900 kB\nMemFree:  100 kB\nBuffers: 7 kB\n"
				"Cached:  50 kB\nSwapCached:  8 kB\nSwapFree:  0 kB\n"
				"Slab:  40 kB\nSReclaimable:  30 kB\nSUnreclaim:  10 kB\n";
constexpr const char *buddyinfo = "Node 0, zone    DMA32      7      0     12 \n"
				  "Node 0, zone   Normal      0      1      2 \n";

} // namespace

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
