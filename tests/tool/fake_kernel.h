// SPDX-License-Identifier: GPL-2.0-only
// A running kernel as a hunt sees it: its memcheck device, its log and the module's parameters.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <tarnctl/hunt/device_backend.h>
#include <tarnctl/hunt/hunt.h>
#include <tarnctl/hunt/hunt_device.h>
#include <uapi/tarn_device.h>

#include "socket_pair.h"

namespace tarn
{

class fake_kernel : public ioctl_device
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
			if (!tracked_instead.empty())
				say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_off:0: " +
				    tracked_instead + "\n");
			say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_off:1: slub name[x] ok\n");
			say("6,1,1,-;[MEM_ADAPTER] tarn_slub_track_off:2: " + growth + "\n");
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

	// The module's counts, as it shows them.
	void set_counts(const char *recorded, const char *dropped, const char *lost,
			const char *skipped) const
	{
		set("slub_recorded", recorded);
		set("slub_dropped", dropped);
		set("slub_lost", lost);
		set("slub_skipped", skipped);
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
		device_backend device(*this, log, directory);

		return run_hunt(device, cache, let_run);
	}

	device_hunt hunt(hunt_clock &clock, slab_sampler slabs, const device_hunt_options &options)
	{
		device_backend device(*this, log, directory);

		return run_device_hunt(device, clock, std::move(slabs), options);
	}

	std::string target = "filp";
	std::string growth = "300+-45=255kB";
	std::string tracked_instead;
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

} // namespace tarn
