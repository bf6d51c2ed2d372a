// SPDX-License-Identifier: GPL-2.0-only
// A hunt on a running kernel, from the kernel's slab figures to what is printed.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include <fmt/ostream.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tarnctl/hunt/attribution.h>
#include <tarnctl/hunt/device_print.h>
#include <tarnctl/hunt/hunt_device.h>
#include <tarnctl/hunt/readout.h>
#include <tarnctl/hunt/slab_sampler.h>

#include "fake_kernel.h"

namespace tarn
{

namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A directory with the kernel's slab files, and the time in which their figures change.
class played_slabs : public hunt_clock
{
public:
	played_slabs()
	{
		std::filesystem::create_directories(root + "/proc");
		reclaimable("filp", 0);
		reclaimable("churn", 0);
		reclaimable("slub_track_cache", 0);
		reclaimable("late", 0);
		reclaimable("dentry", 1);
		write();
	}
	~played_slabs() override
	{
		std::filesystem::remove_all(root);
	}

	nanoseconds now() override
	{
		return time;
	}
	bool wait(std::chrono::milliseconds step) override
	{
		EXPECT_GT(step, 0ms);
		time += step;
		write();
		return time >= stop_at;
	}

	void reclaimable(const std::string &cache, int value) const
	{
		const std::string directory = root + "/sys/kernel/slab/" + cache;

		std::filesystem::create_directories(directory);
		std::ofstream(directory + "/reclaim_account") << value << "\n";
	}

	// Files leak, directory entries and the tracker's own nodes grow faster, and the churn goes
	// up and down by far more than all of them.
	void write() const
	{
		const auto tenths = static_cast<std::uint64_t>(time / 100ms);
		// In place, since the hunt keeps the file open; the text never gets shorter.
		std::ofstream(root + "/proc/slabinfo", std::ios::app).close();
		std::fstream file(root + "/proc/slabinfo");

		file << "slabinfo - version: 2.1\n# name <active_objs> <num_objs> <objsize> ...\n";
		const auto line = [&file](const char *name, std::uint64_t live, int size) {
			fmt::print(
				file,
				"{:<17} {:>6} {:>6} {:>6} 21 1 : tunables 0 0 0 : slabdata 1 1 0\n",
				name, live, live + 21, size);
		};

		line("churn", 5000 + 4000 * (tenths / 5 % 2), 512);
		line("dentry", 2000 + 100 * tenths, 192);
		line("filp", 1000 + 5 * tenths, 256);
		line("slub_track_cache", 40 * tenths, 72);
		if (time >= 5s)
			line("late", 3, 64);
	}

	slab_sampler sampler() const
	{
		return slab_sampler(root);
	}

	std::string root = testing::TempDir() + "slabs_" + std::to_string(getpid());
	nanoseconds time{0};
	nanoseconds stop_at = 24h;
};

caller_record record(const char *handle, const char *comm, std::int64_t count, std::uint64_t total)
{
	return {handle, comm, count, total, 7, 9, {"f+0x1"}};
}

} // namespace

TEST(slab_sampler, takes_the_numbers_from_the_end_of_a_line)
{
	const auto lines = parse_slabinfo("slabinfo - version: 2.1\n"
					  "# name <active_objs> <num_objs> <objsize> 1 2\n"
					  "filp   300 315 192 21 1 : tunables 0 0 0 : slabdata 15\n"
					  "a b 2   3 4 5 6 7 : tunables 0\n"
					  "cut   1 2\n"
					  "high 99999999999999999999 1 1 1 1\n");

	ASSERT_EQ(lines.size(), 2U);
	EXPECT_EQ(lines[0].name, "filp");
	EXPECT_EQ(lines[0].live, 300U);
	EXPECT_EQ(lines[0].room, 315U);
	EXPECT_EQ(lines[0].object_size, 192U);
	EXPECT_EQ(lines[1].name, "a b 2");
	EXPECT_EQ(lines[1].live, 3U);
}

TEST(slab_sampler, spreads_a_few_hundred_points_over_any_time)
{
	played_slabs slabs;
	slab_sampler sampler = slabs.sampler();
	const nanoseconds end = 900s;

	while (slabs.time <= end) {
		sampler.sample(slabs.time);
		slabs.wait(700ms);
		const auto &times = sampler.times();

		ASSERT_LE(times.size(), 512U);
		ASSERT_EQ(times.front(), 0s);
		ASSERT_EQ(times.back(), slabs.time - 700ms);
		for (const sampled_cache &cache : sampler.caches())
			ASSERT_EQ(cache.points.size(), times.size());
	}
	const auto &times = sampler.times();

	ASSERT_GE(times.size(), 256U);
	for (std::size_t i = 2; i < times.size(); i++)
		ASSERT_LE(times[i] - times[i - 1], times[1]);
	EXPECT_EQ(sampler.find("late")->points.front().live, 0U);
	EXPECT_EQ(sampler.find("filp")->peak, sampler.find("filp")->points.back().live);
	EXPECT_NEAR(growth_per_second(sampler, *sampler.find("filp"), {0s, end}), 50, 1);
}

TEST(device_hunt, tracks_the_cache_that_grows_fastest_and_can_leak)
{
	fake_kernel kernel;
	played_slabs slabs;
	const device_hunt hunt = kernel.hunt(slabs, slabs.sampler(), {});
	const auto json = nlohmann::json::parse(device_hunt_json(hunt));

	EXPECT_EQ(kernel.wanted, "filp");
	EXPECT_EQ(hunt.choice, target_choice::fastest);
	EXPECT_EQ(slabs.time, 10s);
	EXPECT_NEAR(std::chrono::duration<double>(hunt.observed.to).count(), 10.0 / 3, 0.01);
	EXPECT_EQ(json["schema"], "tarnctl.hunt/2");
	EXPECT_EQ(json["object_size"], 256);
	EXPECT_EQ(json["growth"]["delta_kib"], -45);
	EXPECT_EQ(json["alloc"][0]["comm"], "leaker");
	EXPECT_EQ(json["live"]["peak_bytes"], 1500 * 256);
	EXPECT_EQ(json["live"]["end_bytes"], 1500 * 256);
	EXPECT_EQ(json["live"]["samples"].front(), (nlohmann::json{0.0, 1000 * 256}));
	EXPECT_EQ(json["live"]["samples"].back(), (nlohmann::json{10.0, 1500 * 256}));
	EXPECT_EQ(json["caches"][0]["name"], "churn");
	EXPECT_EQ(json["caches"][0]["live_peak"], 9000);
	EXPECT_EQ(json["caches"][1]["reclaimable"], true);
	EXPECT_EQ(json["caches"].size(), 5U);
	EXPECT_THAT(json["held"], IsEmpty());
	EXPECT_THAT(json["suspects"], IsEmpty());
	EXPECT_THAT(json["uncertain"], IsEmpty());

	const std::string text = device_hunt_text(hunt);
	const std::string caches = text.substr(text.find("CACHES"));

	EXPECT_THAT(text, HasSubstr("6.7 s tracked: filp, which grew fastest\n"));
	EXPECT_THAT(text, HasSubstr("Live: peak 375 KiB at 10.0 s, end 375 KiB, growth +13 KiB/s "
				    "(50/s, 256 bytes each)\n"));
	EXPECT_THAT(text, HasSubstr("  1000 to 1500\n"));
	EXPECT_LT(caches.find("dentry"), caches.find("filp"));
	EXPECT_THAT(text, HasSubstr("+188 KiB/s r\n")) << "of what can be shrunk";
	EXPECT_THAT(text, Not(HasSubstr("slub_track_cache")));
	// The growth bears out that the counts miss no frees.
	EXPECT_THAT(text, HasSubstr(" held\n  leaker                       7          60         0"
				    "          60  15 KiB\n"));
	EXPECT_THAT(text, HasSubstr("tarnctl hunt --trace -\n"));
}

TEST(device_hunt, says_what_the_module_dropped_before_its_counts)
{
	fake_kernel kernel;
	played_slabs slabs;

	kernel.set_counts("60,4\n", "1000,20\n", "0,3\n", "1,0\n");
	const device_hunt hunt = kernel.hunt(slabs, slabs.sampler(), {});
	const auto json = nlohmann::json::parse(device_hunt_json(hunt));
	const std::string text = device_hunt_text(hunt);

	EXPECT_EQ(json["events"], (nlohmann::json{{"alloc", 60}, {"free", 4}, {"dropped", 1024}}));
	EXPECT_THAT(json["uncertain"][0]["reason"], HasSubstr("1024 of 1088 events were dropped"));
	EXPECT_EQ(text.find("EVENTS DROPPED: 1024 of 1088;"), 0U);
	EXPECT_THAT(text,
		    HasSubstr("Events: 60 allocations and 4 frees recorded, 1024 dropped: "
			      "1020 by a full ring,\n        3 for want of memory, 1 made for "
			      "the tracker itself\n"));

	kernel.done.clear();
	kernel.set_counts("60,0\n", "0,0\n", "0,0\n", "0,0\n");
	slabs.time = {};
	const std::string whole = device_hunt_text(kernel.hunt(slabs, slabs.sampler(), {}));

	EXPECT_THAT(whole, HasSubstr("Events: 60 allocations and 0 frees recorded, 0 dropped\n"));
	EXPECT_THAT(whole, Not(HasSubstr("EVENTS DROPPED")));
}

TEST(device_hunt, names_the_caches_that_are_merged_with_the_target)
{
	fake_kernel kernel;
	played_slabs slabs;
	const std::string all = slabs.root + "/sys/kernel/slab/";

	std::filesystem::rename(all + "filp", all + ":0000256");
	for (const char *name : {"filp", "older", "newer"})
		std::filesystem::create_symlink(":0000256", all + name);
	std::filesystem::create_symlink(":0000064", all + "other");

	const device_hunt hunt = kernel.hunt(slabs, slabs.sampler(), {"filp", false, 4s});
	const auto json = nlohmann::json::parse(device_hunt_json(hunt));

	EXPECT_EQ(json["merged"], (nlohmann::json{"newer", "older"}));
	EXPECT_THAT(device_hunt_text(hunt), HasSubstr("MERGED  the kernel has merged these caches "
						      "with filp"));

	// Under another name it cannot be tracked. The hunt says under which it can.
	kernel.done.clear();
	try {
		kernel.hunt(slabs, slabs.sampler(), {"newer", false, 4s});
		FAIL() << "no such cache";
	} catch (const unknown_cache &error) {
		EXPECT_THAT(error.what(), HasSubstr("merged the cache \"newer\" with \"filp\""));
	}
	EXPECT_THAT(kernel.done, IsEmpty());
}

TEST(device_hunt, leaves_the_choice_to_the_module_where_nothing_is_known)
{
	const std::string none(1, '\0');
	{
		fake_kernel kernel;
		played_slabs slabs;

		std::filesystem::remove(slabs.root + "/proc/slabinfo");
		const device_hunt hunt =
			kernel.hunt(slabs, slab_sampler(slabs.root + "/nowhere"), {"", false, 4s});
		const auto json = nlohmann::json::parse(device_hunt_json(hunt));

		EXPECT_EQ(kernel.wanted, none);
		EXPECT_EQ(slabs.time, 4s) << "there was nothing to observe";
		EXPECT_EQ(hunt.tracked.from, 0s);
		EXPECT_THAT(device_hunt_text(hunt),
			    HasSubstr("NO SLAB FIGURES: no figures from /proc/slabinfo: the kernel "
				      "lacks it: CONFIG_SLUB_DEBUG\n"));
		EXPECT_THAT(device_hunt_text(hunt), HasSubstr("filp, which the module chose\n"));
		EXPECT_FALSE(json.contains("live"));
		EXPECT_FALSE(json.contains("object_size"));
		EXPECT_FALSE(json.contains("events"));
		EXPECT_THAT(json["caches"], IsEmpty());
		EXPECT_EQ(json["uncertain"][0]["objects"], 60);
	}
	{
		fake_kernel kernel;
		played_slabs slabs;

		kernel.hunt(slabs, slabs.sampler(), {"", true, 10s});
		EXPECT_EQ(kernel.wanted, none);
	}
	{
		// Nobody says what the kernel can shrink.
		fake_kernel kernel;
		played_slabs slabs;

		std::filesystem::remove_all(slabs.root + "/sys");
		const device_hunt hunt = kernel.hunt(slabs, slabs.sampler(), {});

		EXPECT_EQ(kernel.wanted, none);
		EXPECT_THAT(device_hunt_text(hunt), HasSubstr("no cache grew that can leak"));
	}
}

TEST(device_hunt, that_is_interrupted_prints_what_it_has)
{
	fake_kernel kernel;
	played_slabs slabs;

	slabs.stop_at = 2s;
	const device_hunt hunt = kernel.hunt(slabs, slabs.sampler(), {"", false, 60s});

	EXPECT_EQ(slabs.time, 2s);
	EXPECT_EQ(kernel.wanted, "filp");
	EXPECT_THAT(kernel.done, ElementsAre("prepare", "read", "on", "off", "read"));
	EXPECT_THAT(device_hunt_text(hunt), HasSubstr("leaker"));
}

TEST(attribution, of_frees_decides_what_counts_as_held)
{
	readout callers;

	callers.alloc = {record("0x1", "daemon", 900, 900)};
	callers.free = {record("0x2", "daemon", 400, 400)};
	EXPECT_EQ(why_uncertain(callers, 480), "");
	EXPECT_EQ(why_uncertain(callers, std::nullopt), "");
	EXPECT_THAT(why_uncertain(callers, 100), HasSubstr("come to 500 objects, but only 100"));

	callers.free.push_back(record("0x3", "", 10, 10));
	EXPECT_EQ(why_uncertain(callers, 480), "") << "a few in interrupts";
	callers.free.back() = record("0x3", "", 100, 100);
	EXPECT_THAT(why_uncertain(callers, 480), HasSubstr("100 of 500 frees came in interrupts"));

	callers.free.back() = record("0x2", "other", 50, 600);
	callers.free.front().total = 600;
	callers.alloc.push_back(record("0x1", "other", 60, 960));
	EXPECT_THAT(why_uncertain(callers, 480), HasSubstr("150 of 600 frees are of tasks that"));

	callers.free = {record("0x2", "reaper", 400, 400)};
	EXPECT_THAT(why_uncertain(callers, 480), HasSubstr("freed 400 objects more than they"));

	// The growth speaks where no free was counted.
	callers.free.clear();
	EXPECT_EQ(why_uncertain(callers, 960), "");
	EXPECT_THAT(why_uncertain(callers, std::nullopt), HasSubstr("no frees were counted"));

	callers.alloc = {record("0x1", "a", 90, 150), record("0x4", "a", 60, 60)};
	callers.alloc[1].pid_max = 12;
	ASSERT_EQ(task_balances(callers).size(), 1U);
	EXPECT_EQ(task_balances(callers)[0].difference(), 150);
	EXPECT_EQ(task_balances(callers)[0].pid_min, 7);
	EXPECT_EQ(task_balances(callers)[0].pid_max, 12);
}

} // namespace tarn
