// SPDX-License-Identifier: GPL-2.0-only
// Watching the lmkd channel, whose other end is played here.
#include <array>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <tarnctl/device/watch.h>
#include <tarnctl/terminal/stop_signals.h>

#include "socket_pair.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::MatchesRegex;

struct frame {
	std::uint32_t length = 20;
	std::uint16_t type = 18;
	std::uint16_t flags = 0;
	std::uint32_t sequence = 0;
	std::uint32_t port = 0;
	std::uint32_t value = 8;
};
static_assert(sizeof(frame) == 20);

std::optional<notification> parse(const frame &f, std::uint32_t sender = 0,
				  std::size_t size = sizeof(frame))
{
	std::array<std::byte, 64> datagram = {};

	std::memcpy(datagram.data(), &f, sizeof(f));
	return parse_notification(sender, std::span(datagram).first(size));
}

class module_end
{
public:
	module_end()
	{
		socket_pair ends(SOCK_DGRAM);

		ours = std::move(ends.kernels);
		channel = lmkd_channel(std::move(ends.tools), 4711);
	}

	void notify(const frame &f, std::size_t size = sizeof(frame)) const
	{
		EXPECT_EQ(send(ours.get(), &f, size, 0), static_cast<ssize_t>(size));
	}

	bool run(const follow_limits &limits, bool json = false)
	{
		return watch(channel, limits,
			     {json, [this](const std::string &line) { lines.push_back(line); },
			      [](const char *) {
			      }});
	}

	file_descriptor ours;
	lmkd_channel channel{file_descriptor(), 0};
	std::vector<std::string> lines;
};

constexpr const char *time_regex = "[0-9-]+T[0-9:]+\\.[0-9]+Z";

} // namespace

TEST(watch, takes_notifications_of_the_kernel_alone)
{
	EXPECT_EQ(parse({.sequence = 5, .value = 16}), (notification{5, 16}));
	EXPECT_EQ(parse({}, 4711), std::nullopt);
	EXPECT_EQ(parse({}, 0, 19), std::nullopt);
	EXPECT_EQ(parse({}, 0, 0), std::nullopt);
	EXPECT_EQ(parse({}, 0, 21), std::nullopt);
	EXPECT_EQ(parse({.length = 24}), std::nullopt);
	EXPECT_EQ(parse({.type = 17}), std::nullopt);
}

TEST(watch, registers_with_its_own_port_and_shows_what_comes)
{
	module_end module;
	nlmsghdr handshake = {};
	const std::string time = time_regex;

	module.notify({.sequence = 0, .value = 8});
	module.notify({.sequence = 1}, 7);
	module.notify({.sequence = 2, .value = 16});
	module.notify({.sequence = 3, .value = 77});
	module.notify({.sequence = 4});
	EXPECT_TRUE(module.run({.count = 3, .time = std::nullopt}));
	EXPECT_THAT(module.lines,
		    ElementsAre("registered for lmkd notifications at netlink port 4711",
				MatchesRegex(time + " 8 slab leak seq 0"),
				MatchesRegex(time + " 16 vmalloc leak seq 2"),
				MatchesRegex(time + " 77 unknown seq 3")));
	ASSERT_EQ(recv(module.ours.get(), &handshake, sizeof(handshake), 0), 16);
	EXPECT_EQ(handshake.nlmsg_len, 16U);
	EXPECT_EQ(handshake.nlmsg_type, 17U);
	EXPECT_EQ(handshake.nlmsg_pid, 4711U);
}

TEST(watch, writes_json_lines)
{
	module_end module;

	module.notify({.sequence = 4294967295U});
	EXPECT_TRUE(module.run({.count = 1, .time = std::nullopt}, true));
	EXPECT_THAT(
		module.lines,
		ElementsAre(R"({"registered":true,"port":4711})",
			    MatchesRegex(R"(\{"time":")" + std::string(time_regex) +
					 R"(","value":8,"name":"slab leak","seq":4294967295\})")));
}

TEST(watch, ends_with_its_time_or_a_signal)
{
	module_end module;
	const std::chrono::seconds no_time(0);

	EXPECT_FALSE(module.run({.count = 1, .time = no_time}));
	EXPECT_TRUE(module.run({.count = std::nullopt, .time = no_time}));

	// Held back while it is watched for, so that none is lost and none kills.
	const stop_signals guard;

	std::raise(SIGTERM);
	EXPECT_TRUE(module.run({.count = 1, .time = std::nullopt}));
}

} // namespace tarn
