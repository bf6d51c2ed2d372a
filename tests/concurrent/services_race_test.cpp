// SPDX-License-Identifier: GPL-2.0-only
// The memory services while the rest of the kernel is busy.
#include <gtest/gtest.h>
#include <hosted/cpumask.h>
#include <hosted/engine/clock.h>
#include <hosted/engine/loader.h>
#include <hosted/engine/log.h>
#include <hosted/engine/machine.h>
#include <hosted/fs.h>
#include <hosted/mmzone.h>
#include <hosted/process.h>
#include <hosted/sysfs.h>
#include <hosted/task_control.h>
#include <hosted/vendor_hooks.h>
#include <kernel/rcupdate.h>
#include <platform/hosted/ember.h>

#include "crew.h"

using namespace hosted;
using concurrent_tests::crew;

namespace
{

class services_race : public testing::Test
{
protected:
	template <class F>
	F *exported(const char *name) const
	{
		return module.symbol<F>(name);
	}

	machine booted;
	loaded_module module;
	crew others;
};

TEST_F(services_race, two_walks_over_files_that_come_and_go)
{
	super_block &sb = mount();
	auto *const drop_pagecache = exported<void()>("tarn_drop_pagecache");
	std::vector<inode *> stay(20);
	for (inode *&file : stay)
		file = &create_file(sb);

	others.add(2, [&] {
		std::vector<inode *> files;
		for (int i = 0; i < 10; i++)
			cache_page(*files.emplace_back(&create_file(sb)), 0, {.dirty = i % 3 == 0});
		for (inode *file : files)
			remove_file(*file);
	});
	others.add(1, drop_pagecache);
	others.let_work(100);
	for (int i = 0; i < 50; i++) {
		for (inode *file : stay)
			cache_page(*file, 1);
		drop_pagecache();
		for (inode *file : stay)
			EXPECT_TRUE(cached_pages(*file).empty());
	}
	others.let_work(100);
	others.stop();
	for (inode *file : stay)
		EXPECT_EQ(references(*file), 0);
}

TEST_F(services_race, kills_while_processes_start_and_exit)
{
	auto *const kill = exported<unsigned long(int, unsigned long)>("tarn_direct_kill");
	std::atomic<int> next_pid = 1;

	let_victims_exit(true);
	others.add(2, [&] {
		const int pid = next_pid += 3;
		task_struct &needed = add_process("needed", pid, {.anon = 1000}, 0);
		{
			const rcu_read_guard rcu; // keeps exiting tasks from being freed
			task_struct &victim = add_process("victim", pid + 1, {.anon = 50}, 900);
			task_struct &app = add_process("app", pid + 2, {.anon = pid % 50}, 700);
			std::this_thread::yield();
			add_thread(app, "thread", pid + 2);
			set_memory_use(app, {.swap = 1});
			std::this_thread::yield();
			exit_process(app);
			exit_process(victim);
		}
		exit_process(needed);
	});
	for (int i = 0; i < 50; i++) {
		kill(0, 100);
		others.let_work(5);
	}
	others.stop();
	EXPECT_FALSE(kill(0, -1UL)) << "no process is left";
	for (const sent_signal &s : take_signals())
		EXPECT_NE(s.comm, "needed");
}

TEST_F(services_race, watermarks_change_while_they_are_checked)
{
	auto *const zone_ok = exported<bool(zone_type, unsigned)>("tarn_zone_watermark_ok");

	others.add(2, [&] {
		const unsigned cpu = self().cpu;
		set_zone(1, {.high_wmark = 10, .free = 1000, .drift_mark = cpu * 2000});
		set_free_pages_diff(1, cpu, static_cast<signed char>(cpu));
		set_cpu_online(cpu + 1, cpu % 2);
		set_free_blocks(1, cpu, 0, 3);
		set_free_blocks(1, cpu, 0, 0);
	});
	set_free_blocks(1, 9, 2, 1);
	for (int i = 0; i < 1000; i++)
		EXPECT_TRUE(zone_ok(static_cast<zone_type>(1), i % 9));
	others.let_work(100);
}

TEST_F(services_race, each_event_is_in_exactly_one_report)
{
	constexpr unsigned long events = 30000;
	auto *const report = exported<void(unsigned)>("tarn_memory_event_report");
	std::atomic<unsigned long> left = 2 * events;
	s64 kswapd = 0, counted = 0;
	const auto take_reports = [&] {
		for (const auto &event : platform::take_ember_events())
			for (const auto &[key, value] : event.items)
				if (key == "kswapd_cnt")
					kswapd += std::get<s64>(value);
				else if (key == "record_event")
					counted += std::get<s64>(value);
	};

	write_file("/sys/kernel/mm_event/enabled", "1");
	write_file("/sys/kernel/mm_event/level", "2");
	others.add(2, [&] {
		for (int i = 0; i < 100; i++) {
			trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
			report(3);
		}
		left -= 100;
	});
	while (static_cast<long>(left.load()) > 0) {
		advance(15000);
		settle();
		take_reports();
	}
	others.stop();
	advance(15000);
	settle();
	take_reports();
	const long happened = 2 * events - static_cast<long>(left.load());
	EXPECT_EQ(kswapd, happened);
	EXPECT_EQ(counted, happened);
}

} // namespace
