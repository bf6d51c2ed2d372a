// SPDX-License-Identifier: GPL-2.0-only
// What the commands that need a device print as JSON, against the schemas that are published.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tarnctl/cma/cma_print.h>
#include <tarnctl/device/pages.h>
#include <tarnctl/device/pins.h>
#include <tarnctl/device/service_outcome.h>
#include <tarnctl/device/thresholds.h>
#include <tarnctl/device/watch.h>
#include <tarnctl/hunt/device_print.h>
#include <uapi/tarn_device.h>
#include <unistd.h>

#include "socket_pair.h"

namespace tarn
{

namespace
{

// The checker says on standard error what is wrong.
bool fits(const std::string &schema, const std::vector<std::string> &texts)
{
	const std::string line =
		PYTHON " " SOURCE_DIR "/tests/tool/check_json.py " SOURCE_DIR "/docs " + schema;
	std::FILE *pipe = popen(line.c_str(), "w"); // NOLINT(cert-env33-c)

	for (const std::string &text : texts)
		std::fputs((nlohmann::ordered_json::parse(text).dump() + "\n").c_str(), pipe);
	return pclose(pipe) == 0;
}

// Does all that it is asked, or nothing.
class fake_device : public ioctl_device
{
public:
	int call(unsigned long request, void *argument) override
	{
		if (request == TARN_IOC_WATERMARK)
			static_cast<tarn_watermark *>(argument)->ok = success;
		else if (request == TARN_IOC_RECLAIM)
			static_cast<tarn_reclaim_request *>(argument)->pages = success ? 32 : 0;
		else if (request == TARN_IOC_KILL)
			static_cast<tarn_kill_request *>(argument)->pages = success ? 900 : 0;
		return 0;
	}

	bool success = true;
};

std::string printed(const service_outcome &outcome, shown_counts shown)
{
	const memory_counts counts = read_memory_counts();

	return outcome_json(outcome, counts, counts, shown);
}

cma_area area()
{
	cma_area area;

	area.report.name = "linux,cma";
	area.report.first_pfn = 1000;
	area.report.last_pfn = 5095;
	area.report.pages = 4096;
	area.report.used_bits = 20;
	area.report.records = {{1000, 1003, {"f+0x1/0x2", "g\xff"}}, {1010, 1010, {}}};
	return area;
}

} // namespace

TEST(json_schema, is_kept_by_values_of_the_device)
{
	const std::string pages = pages_json({1, 2, 3, 4, 5, UINT64_MAX});

	EXPECT_TRUE(fits("pages", {pages}));
	EXPECT_TRUE(fits("thresholds", {thresholds_json({0, 0, 2, 3, UINT32_MAX})}));
	EXPECT_FALSE(fits("thresholds", {pages})) << "the checker sees the difference";
}

TEST(json_schema, is_kept_by_services_that_succeed_or_not)
{
	const auto memory = shown_counts::memory;
	const auto blocks = shown_counts::memory_and_blocks;
	fake_device device;
	std::vector<std::string> kill, reclaim, watermark;

	for (const bool success : {true, false}) {
		device.success = success;
		kill.push_back(printed(kill_outcome(device, "resident", 1000), memory));
		kill.push_back(printed(kill_outcome(device, "swapped", 0), memory));
		reclaim.push_back(printed(reclaim_outcome(device, UINT64_MAX), memory));
		watermark.push_back(printed(watermark_outcome(device, 1, 9), blocks));
	}
	EXPECT_TRUE(fits("kill", kill));
	EXPECT_TRUE(fits("reclaim", reclaim));
	EXPECT_TRUE(fits("watermark", watermark));
	EXPECT_TRUE(fits("drop", {printed(drop_outcome(device, "slab"), memory),
				  printed(drop_outcome(device, "all"), memory)}));
	EXPECT_TRUE(fits("compact", {printed(compact_outcome(device), blocks)}));
}

TEST(json_schema, is_kept_by_lines_that_follow)
{
	socket_pair ends(SOCK_DGRAM);
	lmkd_channel channel(std::move(ends.tools), 4711);
	std::vector<std::string> lines;
	const auto notify = [&ends](std::uint32_t value) {
		const std::uint32_t datagram[] = {20, 18, 7, 0, value};

		EXPECT_EQ(send(ends.kernels.get(), datagram, sizeof(datagram), 0), 20);
	};

	notify(8);
	notify(16);
	notify(77);
	EXPECT_TRUE(watch(channel, {.count = 3, .time = std::nullopt},
			  {true, [&lines](const std::string &line) { lines.push_back(line); },
			   [](const char *) {
			   }}));
	EXPECT_EQ(lines.size(), 4U);
	EXPECT_TRUE(fits("watch", lines));
	EXPECT_TRUE(fits("pins", {pin_json({std::chrono::microseconds(1500001), "\xff a",
					    "try_grab_folio", 4096, 4111})}));
}

TEST(json_schema, is_kept_by_areas_known_in_full_or_in_part)
{
	cma_area watched = area();

	watched.order = 2;
	watched.limit_permillage = 850;
	cma_area unmeasured = area();

	unmeasured.limit_permillage = -3;
	unmeasured.report.lost = true;
	unmeasured.unrecorded = 0;
	EXPECT_TRUE(fits("cma",
			 {cma_json({}), cma_json({{watched, area(), unmeasured}, {{"b", "no"}}})}));
}

TEST(json_schema, is_kept_by_a_hunt_on_a_device)
{
	device_hunt without_figures{{}, slab_sampler("/nowhere"), target_choice::module, {}, {},
				    {}};

	without_figures.slabs.sample(std::chrono::seconds(0));
	without_figures.result.cache = "filp";
	without_figures.result.target = {300, -45, 255};
	without_figures.result.callers.alloc = {{"0x1a2b", "leaker", 50, 70, 4, 9, {"f+0x1/0x2"}}};
	without_figures.result.callers.free = {{"0x1a2c", "", 40, 40, 0, 0, {}}};

	const std::string root = testing::TempDir() + "schema_" + std::to_string(getpid());

	std::filesystem::create_directories(root + "/proc");
	std::filesystem::create_directories(root + "/sys/kernel/slab/filp");
	std::ofstream(root + "/sys/kernel/slab/filp/reclaim_account") << "0\n";
	std::ofstream(root + "/proc/slabinfo")
		<< "slabinfo - version: 2.1\n"
		   "filp 300 315 192 21 1 : tunables 0 0 0 : slabdata 15 15 0\n"
		   "odd 1 2 64 64 1 : tunables 0 0 0 : slabdata 1 1 0\n";
	device_hunt with_figures{without_figures.result,
				 slab_sampler(root),
				 target_choice::module,
				 {},
				 {},
				 {"merged"}};

	with_figures.result.object_size = 192;
	with_figures.result.events = event_counts{50, 40, 3, 2, 1};
	for (const int second : {0, 1, 2, 3})
		with_figures.slabs.sample(std::chrono::seconds(second));
	with_figures.tracked = {std::chrono::seconds(0), std::chrono::seconds(3)};
	std::filesystem::remove_all(root);
	EXPECT_TRUE(fits("hunt-device",
			 {device_hunt_json(without_figures), device_hunt_json(with_figures)}));
}

} // namespace tarn
