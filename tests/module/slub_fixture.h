// SPDX-License-Identifier: GPL-2.0-only
// Helpers for tests of slab tracking: traffic in a cache, commands, and readouts.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <hosted/engine/callstack.h>
#include <hosted/engine/context.h>
#include <hosted/slab.h>
#include <hosted/task_control.h>
#include <slub_track.h>
#include <tarnctl/hunt/readout.h>

#include "fixture.h"

namespace module_tests
{

inline constexpr u32 prepare = MEMCHECK_CMD_PREPARE;
inline constexpr u32 on = MEMCHECK_CMD_ON;
inline constexpr u32 off = MEMCHECK_CMD_OFF;
inline constexpr u64 half_ring = slub_ring_entries / 2;
inline constexpr const char *drain_threads[SLUB_KINDS] = {"slub-alloc", "slub-free"};

// Make events of one kind only: the other half of each object's life is hidden from the probes.
inline void record_alloc(kmem_cache &cache, u64 times = 1)
{
	for (u64 i = 0; i < times; i++)
		if (void *object = hosted::allocate(cache, GFP_ATOMIC))
			hosted::release_quietly(cache, object);
}
inline void record_free(kmem_cache &cache, u64 times = 1)
{
	for (u64 i = 0; i < times; i++)
		hosted::release(cache, hosted::allocate_untraced(cache, GFP_ATOMIC));
}

// The call stack of a function called from a system call, innermost first.
inline std::vector<unsigned long> path(std::string_view function)
{
	return {hosted::symbol_address(function, 0x10, 0x80),
		hosted::symbol_address("invoke_syscall", 0x48, 0x114)};
}

// Allocates in a function, as a task.
inline void allocate_in(std::string_view function, kmem_cache &cache, u64 times,
			std::string_view comm = "task", int pid = 7)
{
	const hosted::task_ptr task = hosted::make_task(comm, pid);
	const hosted::task_scope as(*task);
	const hosted::frame_scope in(path(function));

	record_alloc(cache, times);
}

// Matches a record of a readout.
inline auto pair_of(const std::string &comm, u64 count, u64 total)
{
	return testing::AllOf(testing::Field(&tarn::caller_record::comm, comm),
			      testing::Field(&tarn::caller_record::count, count),
			      testing::Field(&tarn::caller_record::total, total));
}

using ring_counters = std::pair<u64, u64>; // in, out

// The module with its subsystems started.
class slub_test : public module_test
{
protected:
	void SetUp() override
	{
		start();
		// Let the drain threads go to sleep: only a sleeping thread can be woken.
		hosted::settle();
	}

	int command(u32 cmd)
	{
		return client.command(MEMTYPE_SLUB, cmd);
	}
	void choose(const std::string &cache)
	{
		set_parameter("specified_target", cache);
		ASSERT_EQ(command(prepare), 0);
	}
	void track(const std::string &cache)
	{
		choose(cache);
		ASSERT_EQ(command(on), 0);
	}

	tarn::readout read()
	{
		const auto stacks = client.read_stacks(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE);

		EXPECT_EQ(stacks.status, 0);
		return tarn::parse_readout(stacks.text);
	}
	tarn::readout read_after_off()
	{
		EXPECT_EQ(command(off), 0);
		return read();
	}

	using kind_counts = std::pair<u64, u64>; // alloc, free

	// The counts that the module shows.
	static kind_counts count(const char *name)
	{
		const std::string text = parameter(name);
		kind_counts counts{};

		EXPECT_EQ(std::sscanf(text.c_str(), "%llu,%llu\n", &counts.first, &counts.second),
			  2)
			<< name << ": " << text;
		return counts;
	}
	static void expect_counts(kind_counts recorded, kind_counts dropped, kind_counts lost,
				  kind_counts skipped)
	{
		EXPECT_EQ(count("slub_recorded"), recorded);
		EXPECT_EQ(count("slub_dropped"), dropped);
		EXPECT_EQ(count("slub_lost"), lost);
		EXPECT_EQ(count("slub_skipped"), skipped);
	}

	// Call only while no thread records or drains.
	[[nodiscard]] ring_counters ring(int kind) const NO_THREAD_SAFETY_ANALYSIS
	{
		const slub_ringbuf &r = internal<slub_ringbuf>("srb_array")[kind];

		return {r.in, r.out};
	}
};

// The same, with a cache being tracked.
class slub_tracking : public slub_test
{
protected:
	void SetUp() override
	{
		slub_test::SetUp();
		track("victim");
	}

	kmem_cache *cache = hosted::add_cache("victim", 64);
};

} // namespace module_tests
