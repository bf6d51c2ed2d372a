// SPDX-License-Identifier: GPL-2.0-only
// The netlink channel to lmkd, from both ends.
#include <array>
#include <optional>
#include <span>

#include <hosted/netlink.h>
#include <kernel/netlink.h>
#include <platform/hosted/lmkd.h>

#include "fixture.h"

namespace
{

using namespace module_tests;
using platform::lmkd_notification;
using testing::ElementsAre;

constexpr int unit = 31;
constexpr u16 handshake = 17;

class lmkd_channel : public module_test
{
protected:
	void SetUp() override
	{
		start();
	}

	int (*const open)() = exported<int()>("tarn_memory_netlink_init");
	void (*const close)() = exported<void()>("tarn_memory_netlink_exit");
	int (*const notify)(unsigned) = exported<int(unsigned)>("lmkd_notify");
};

TEST_F(lmkd_channel, notifications_go_to_the_last_handshake)
{
	EXPECT_EQ(notify(8), 0); // without a handshake it goes to the module itself
	platform::lmkd first(100);
	hosted::netlink_socket second(unit, 4242);
	first.handshake();
	EXPECT_EQ(notify(16), 0);
	const std::array datagram{nlmsghdr{0xffffffff, handshake, 0xffff, 99, 4242}};
	EXPECT_EQ(second.send(std::as_bytes(std::span(datagram))), 0);
	EXPECT_EQ(notify(0x87654321), 0);
	EXPECT_THAT(first.collect(), ElementsAre(lmkd_notification{1, 16}));
	const std::array<u32, 5> wire = {20, 18, 2, 0, 0x87654321};
	EXPECT_THAT(second.receive(),
		    testing::Optional(testing::ElementsAreArray(std::as_bytes(std::span(wire)))));
	EXPECT_THAT(log_lines(log_info, "4242"),
		    ElementsAre("[tarn_netlink_lmkd_ready] NETLINK_LMKD_INIT: lmkd_nl_pid: 4242\n",
				"[lmkd_notify] port:4242 type: 18, value: 2271560481, ret: 0\n"));
}

TEST_F(machine_test, an_open_netlink_socket_of_a_process_keeps_the_module_loaded)
{
	hosted::loaded_module module;
	module.symbol<int()>("tarn_memory_netlink_init")();
	std::optional<hosted::netlink_socket> process(std::in_place, unit, 200);
	module.symbol<void()>("tarn_memory_netlink_exit")();
	EXPECT_EQ(module.unload(), -EAGAIN) << "its callback may still run";
	process.reset();
	EXPECT_EQ(module.unload(), 0);
}

TEST_F(lmkd_channel, only_a_handshake_at_the_start_of_a_datagram_counts)
{
	platform::lmkd daemon(100);
	hosted::netlink_socket other(unit, 200);
	daemon.handshake();
	for (const u16 type : {0, 16, 18, 0xffff}) {
		const nlmsghdr datagram[] = {{16, type, 0, 0, 200}, {16, handshake, 0, 0, 200}};
		EXPECT_EQ(other.send(std::as_bytes(std::span(datagram))), 0);
	}
	EXPECT_EQ(log_lines(log_info).back(),
		  "[tarn_netlink_lmkd_ready] type: 65535 not supported\n");
	const nlmsghdr datagram[] = {{16, handshake, 0, 0, 200}, {16, handshake, 0, 0, 100}};
	const auto bytes = std::as_bytes(std::span(datagram));
	for (std::size_t length = 0; length < NLMSG_HDRLEN; length++)
		EXPECT_EQ(other.send(bytes.first(length)), 0);
	notify(8);
	EXPECT_EQ(daemon.collect().size(), 1u);
	other.send(bytes);
	notify(8);
	EXPECT_TRUE(other.receive());
}

TEST_F(lmkd_channel, an_undelivered_notification_is_only_logged)
{
	platform::lmkd daemon(100, 2);
	daemon.handshake();
	notify(1);
	{
		const hosted::fault_scope fail("nlmsg_new");
		EXPECT_EQ(notify(2), -1);
	}
	EXPECT_THAT(errors(), ElementsAre("[lmkd_notify] NETLINK_LMKD_INIT nlmsg_new fail\n"));
	notify(3);
	EXPECT_EQ(notify(4), 0);
	EXPECT_THAT(daemon.collect(),
		    ElementsAre(lmkd_notification{0, 1}, lmkd_notification{1, 3}));
	daemon.go_away();
	EXPECT_EQ(notify(5), 0);
	daemon.come_back();
	notify(6);
	EXPECT_THAT(daemon.collect(), ElementsAre(lmkd_notification{4, 6}));
	EXPECT_EQ(log_lines(log_info, "value: 4, ret: -11\n").size(), 1u);
	EXPECT_EQ(log_lines(log_info, "value: 5, ret: -111\n").size(), 1u);
}

TEST_F(lmkd_channel, opens_and_closes)
{
	platform::lmkd daemon(100);
	EXPECT_EQ(daemon.handshake(), 0);
	open(); // while it is open
	notify(3);
	close();
	EXPECT_EQ(log_lines(log_info, "release"),
		  lines{"[tarn_memory_netlink_exit] netlink_kernel_release.\n"});
	EXPECT_EQ(daemon.handshake(), -ECONNREFUSED);
	{
		const hosted::fault_scope fail("netlink_kernel_create");
		EXPECT_EQ(open(), -1);
	}
	EXPECT_EQ(errors("netlink_kernel_create"),
		  lines{"[tarn_memory_netlink_init] netlink_kernel_create error.\n"});
	EXPECT_EQ(notify(4), -1);

	ASSERT_EQ(open(), 0);
	notify(5);
	EXPECT_THAT(daemon.collect(),
		    ElementsAre(lmkd_notification{0, 3}, lmkd_notification{1, 5}));
}

} // namespace
