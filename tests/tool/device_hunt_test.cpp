// SPDX-License-Identifier: GPL-2.0-only
// The steps of a hunt on a running kernel.
#include <cerrno>
#include <new>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarnctl/hunt/hunt.h>

#include "fake_kernel.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Why a hunt fails.
std::string failure(
	fake_kernel &kernel, const std::function<void()> &let_run = [] {})
{
	try {
		kernel.hunt("", let_run);
	} catch (const hunt_error &error) {
		return error.what();
	}
	return "it does not";
}

} // namespace

TEST(device_hunt, brings_home_callers_growth_and_the_kernel_s_log)
{
	fake_kernel kernel;

	kernel.set("specified_target", "mine\n\n");
	const hunt_result result = kernel.hunt("filp", [&kernel] {
		EXPECT_EQ(kernel.get("specified_target"), "mine\n") << "not yet given back";
		kernel.say("12,9,9,-;[MEM_ADAPTER] a program's: slub name[forged] ok\n");
		kernel.say("4,9,9,-;something else\n SUBSYSTEM=block\n");
	});

	EXPECT_THAT(kernel.done, ElementsAre("prepare", "read", "on", "off", "read"));
	EXPECT_EQ(kernel.wanted, "filp");
	EXPECT_EQ(kernel.get("specified_target"), "mine\n");
	EXPECT_EQ(result.cache, "filp");
	EXPECT_EQ(result.target.start_kib, 300U);
	EXPECT_EQ(result.target.delta_kib, -45);
	ASSERT_EQ(result.callers.alloc.size(), 1U);
	EXPECT_EQ(result.callers.alloc[0].comm, "leaker");
	EXPECT_THAT(result.log, HasSubstr("300+-45=255kB\n"));
	EXPECT_THAT(result.log, HasSubstr("\nsomething else\n[MEM"));
	EXPECT_THAT(result.log, Not(HasSubstr("forged")));
}

TEST(device_hunt, takes_back_a_target_that_was_left_over_and_restores_it)
{
	fake_kernel kernel;

	kernel.set("specified_target", "dentry\n");
	kernel.hunt("");
	EXPECT_EQ(kernel.wanted, std::string(1, '\0'));
	EXPECT_EQ(kernel.get("specified_target"), "dentry");
}

TEST(device_hunt, that_fails_midway_leaves_tracking_off)
{
	{
		fake_kernel kernel;

		EXPECT_THROW(kernel.hunt("none"), unknown_cache);
		EXPECT_EQ(kernel.done.back(), "off");
	}
	{
		// Another cache of the name has come since.
		fake_kernel kernel;

		kernel.growth = "no target to measure";
		EXPECT_EQ(failure(kernel), "the cache \"filp\" was destroyed while it was tracked");
	}
	{
		fake_kernel kernel;

		kernel.tracked_instead = "slub name[filp] was tracked";
		EXPECT_EQ(failure(kernel), "another program chose another target during the hunt");
	}
	{
		fake_kernel kernel;

		kernel.target = "a\nb";
		EXPECT_THROW(kernel.hunt(""), hunt_error);
		EXPECT_EQ(kernel.done.back(), "off");
	}
	{
		fake_kernel kernel;

		EXPECT_THROW(kernel.hunt("", [] { throw std::bad_alloc(); }), std::bad_alloc);
		EXPECT_EQ(kernel.done.back(), "off");
	}
	{
		fake_kernel kernel;

		kernel.read_result = -ENOMEM;
		EXPECT_THROW(kernel.hunt(""), hunt_error);
		EXPECT_THAT(kernel.done, ElementsAre("prepare", "read", "on", "off", "read"));
	}
	{
		// The module stays on when the cache has gone meanwhile.
		fake_kernel kernel;

		kernel.off_result = -EINVAL;
		EXPECT_EQ(failure(kernel, [&kernel] { kernel.set("slub_track_flag", "1\n"); }),
			  "the cache \"filp\" was destroyed while it was tracked");
		EXPECT_EQ(kernel.get("slub_track_flag"), "0");
	}
}

TEST(device_hunt, does_not_touch_what_was_not_switched_on_by_it)
{
	fake_kernel kernel;

	kernel.set("slub_track_flag", "1\n");
	EXPECT_THROW(kernel.hunt("filp"), hunt_error);
	EXPECT_THAT(kernel.done, ElementsAre());

	kernel.set("slub_track_flag", "0\n");
	kernel.on_result = -EINVAL;
	EXPECT_THROW(kernel.hunt("filp"), unknown_cache);
	EXPECT_EQ(kernel.done.back(), "on");
}

} // namespace tarn
