// SPDX-License-Identifier: GPL-2.0-only
// The hunt on a running kernel, whose device, log and parameters are played here.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarnctl/hunt_device.h>
#include <tarnctl/hunt_print.h>
#include <tarnctl/kernel_device.h>
#include <uapi/tarn_device.h>

#include "socket_pair.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class fake_kernel : public control_device
{
public:
	fake_kernel()
	{
		socket_pair ends(SOCK_DGRAM);

		log_end = std::move(ends.kernels);
		log = kernel_log(std::move(ends.tools));
		std::filesystem::create_directory(directory);
		set("slub_track_flag", "0\n");
		set("specified_target", "(null)\n");
	}

	~fake_kernel() override
	{
		std::filesystem::remove_all(directory);
	}

	int call(unsigned long request, void *argument) override
	{
		if (request == TARN_IOC_READ_STACKS)
			return read(static_cast<memcheck_info *>(argument));
		EXPECT_EQ(request, TARN_IOC_COMMAND);
		const auto *record = static_cast<memcheck_command *>(argument);

		EXPECT_EQ(record->memtype, MEMTYPE_SLUB);
		switch (record->cmd) {
		case MEMCHECK_CMD_PREPARE:
			done.emplace_back("prepare");
			wanted = get("specified_target");
			return 0;
		case MEMCHECK_CMD_ON:
			done.emplace_back("on");
			say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_on:1: slub name[" + target +
			    "] ok\n");
			return on_result;
		default:
			done.emplace_back("off");
			say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_off:1: slub name[x] ok\n");
			say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_off:2: 300+-45=255kB\n");
			return off_result;
		}
	}

	int read(memcheck_info *info)
	{
		const bool first = std::ranges::count(done, "read") == 0;
		const std::string text = first ? "left over" : readout;

		done.emplace_back("read");
		EXPECT_EQ(info->type, MEMTYPE_SLUB);
		EXPECT_EQ(info->size, MEMCHECK_MAX_SIZE);
		std::memcpy(info + 1, text.data(), text.size());
		info->size = text.size();
		return first ? 0 : read_result;
	}

	void say(const std::string &record) const
	{
		EXPECT_EQ(send(log_end.get(), record.data(), record.size(), 0),
			  static_cast<ssize_t>(record.size()));
	}

	[[nodiscard]] std::string get(const std::string &parameter) const
	{
		std::ifstream file(directory + "/" + parameter);

		return {std::istreambuf_iterator<char>(file), {}};
	}

	void set(const std::string &parameter, const std::string &value) const
	{
		std::ofstream(directory + "/" + parameter) << value;
	}

	hunt_result hunt(
		const std::string &cache, const std::function<void()> &let_run = [] {})
	{
		kernel_device device(*this, log, directory);

		return run_hunt(device, cache, let_run);
	}

	std::string target = "filp";
	int on_result = 0;
	int off_result = 0;
	int read_result = 0;
	std::string readout =
		"@@@@@filp SLUB_ALLOC@@@@@\n[0x1 c:(60/60) (p:7-7) leaker]\n  f+0x1\n";
	std::string wanted;
	std::vector<std::string> done;

private:
	std::string directory = testing::TempDir() + "parameters_" + std::to_string(getpid());
	file_descriptor log_end;
	kernel_log log{file_descriptor()};
};

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

TEST(device_hunt, leaves_out_what_a_device_does_not_tell)
{
	fake_kernel kernel;
	hunt_result result = kernel.hunt("");

	EXPECT_THAT(hunt_text(result), HasSubstr("Slab cache filp\n"));
	EXPECT_THAT(hunt_text(result), HasSubstr("difference\nleaker "));
	EXPECT_THAT(hunt_text(result), Not(HasSubstr("events")));
	EXPECT_THAT(hunt_json(result), Not(HasSubstr("object_size")));
	EXPECT_THAT(hunt_json(result), Not(HasSubstr("events")));
	result.object_size =
		listed_object_size("filp_x 1 1 8 1 1\nfilp   3 5 192 21 1 : x\n", "filp");
	EXPECT_THAT(hunt_text(result), HasSubstr("filp, 192 bytes an object\n"));
	EXPECT_EQ(listed_object_size("filp_x 1 1 8 1 1\n", "filp"), std::nullopt);
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
		EXPECT_THROW(kernel.hunt("", [&kernel] { kernel.set("slub_track_flag", "1\n"); }),
			     hunt_error);
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
