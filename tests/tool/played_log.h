// SPDX-License-Identifier: GPL-2.0-only
// A kernel log that a test plays.
#pragma once

#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <tarnctl/device/kernel_log.h>

#include "socket_pair.h"

namespace tarn
{

class played_log
{
public:
	played_log()
	{
		socket_pair ends(SOCK_SEQPACKET);

		kernel = std::move(ends.kernels);
		log = kernel_log(std::move(ends.tools));
	}

	void record(const std::string &record) const
	{
		EXPECT_EQ(send(kernel.get(), record.data(), record.size(), 0),
			  static_cast<ssize_t>(record.size()));
	}

	void say(const std::string &text) const
	{
		record("6,1,1500001,-;" + text + "\n");
	}

	file_descriptor kernel;
	kernel_log log{file_descriptor()};
};

// What the module logs.
inline std::string module_says(const char *function, const std::string &message)
{
	return fmt::format("[MEM_ADAPTER] {}:12: {}", function, message);
}

} // namespace tarn
