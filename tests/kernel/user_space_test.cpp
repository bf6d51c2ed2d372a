// SPDX-License-Identifier: GPL-2.0-only
// What user space can reach: files, netlink and its own memory.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>

#include <hosted/netlink.h>
#include <hosted/sysfs.h>
#include <hosted/user_memory.h>
#include <kernel/netlink.h>
#include <kernel/sysfs.h>
#include <kernel/uaccess.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

class sysfs : public kernel_test
{
protected:
	sysfs()
	{
		on_show = [](char *page) {
			return sysfs_emit(page, "%d\n", 42);
		};
		const auto show = [](kobject *, kobj_attribute *, char *page) {
			return on_show(page);
		};
		const auto store = [](kobject *, kobj_attribute *, const char *text, size_t count) {
			stored.assign(text, count + 1);
			return *text == '-' ? -EINVAL : static_cast<long>(count);
		};
		helper_kobj_attribute_init(&both_, "both", 0644, show, store);
		helper_kobj_attribute_init(&none_, "none", 0444, nullptr, store);
		const std::array attributes{&both_, &none_};
		helper_attribute_group_init(&group_, attributes.data(), attributes.size());
		dir_ = kobject_create_and_add("mm", kernel_kobj);
		EXPECT_EQ(sysfs_create_group(dir_, &group_), 0);
	}
	~sysfs() override
	{
		kobject_put(dir_);
	}

	static inline const std::string both = "/sys/kernel/mm/both";
	static inline std::function<long(char *)> on_show;
	static inline std::string stored;
	kobj_attribute both_{}, none_{};
	attribute_group group_{};
	kobject *dir_ = nullptr;
	std::string text_;
};

TEST_F(sysfs, files_run_their_handlers)
{
	EXPECT_EQ(read_file(both, text_), 0);
	EXPECT_EQ(text_, "42\n");
	EXPECT_EQ(write_file(both, "7\n"), 2);
	EXPECT_EQ(stored, std::string("7\n\0", 3));
	EXPECT_EQ(write_file(both, std::string(5000, 'x')), 4096);
	stored = "kept";
	EXPECT_EQ(write_file(both, ""), 0);
	EXPECT_EQ(stored, "kept");
	EXPECT_EQ(write_file(both, "-"), -EINVAL);
	on_show = [](char *page) {
		return sysfs_emit(page, "%5000d", 1);
	};
	EXPECT_EQ(read_file(both, text_), 0);
	EXPECT_EQ(text_.size(), 4095U);
	on_show = [](char *page) {
		return sysfs_emit(page + 1, "x");
	};
	EXPECT_DEATH(read_file(both, text_), "sysfs_emit");
	EXPECT_EQ(write_file("/sys/kernel/mm/none", "1"), -EACCES);
	EXPECT_EQ(read_file("/sys/kernel/mm/none", text_), -EIO);
	EXPECT_EQ(read_file("/sys/kernel/mm", text_), -ENOENT);
}

TEST_F(sysfs, the_last_put_removes_everything_once_no_handler_runs)
{
	kobject *below = kobject_create_and_add("below", dir_);
	kobject_put(std::exchange(dir_, nullptr));
	EXPECT_EQ(read_file(both, text_), 0) << "a directory below keeps it";
	std::atomic<bool> inside = false;
	std::atomic<bool> left = false;
	on_show = [&](char *) {
		inside = true;
		for (int i = 0; i < 1000; i++)
			std::this_thread::yield();
		left = true;
		return 0;
	};
	std::jthread reader([] {
		std::string text;
		EXPECT_EQ(read_file(both, text), 0);
	});
	while (!inside)
		std::this_thread::yield();
	kobject_put(below);
	EXPECT_TRUE(left);
	EXPECT_EQ(read_file(both, text_), -ENOENT);
}

constexpr int unit = 31;
constexpr std::uint32_t port = 4242;

class netlink : public kernel_test
{
protected:
	netlink()
	{
		helper_netlink_cfg_set_input(&cfg_, [](sk_buff *skb) { on_input(skb); });
		on_input = [](sk_buff *) {
		};
		sk = __netlink_kernel_create(&init_net, unit, nullptr, &cfg_);
	}
	~netlink() override
	{
		netlink_kernel_release(sk);
	}
	static sk_buff *message(u32 value)
	{
		sk_buff *skb = helper_nlmsg_new(sizeof(value), GFP_ATOMIC | __GFP_ZERO);
		nlmsghdr *nlh = helper_nlmsg_put(skb, 0, 7, 18, sizeof(value), 0);
		std::memcpy(helper_nlmsg_data(nlh), &value, sizeof(value));
		return skb;
	}

	static inline std::function<void(sk_buff *)> on_input;
	netlink_kernel_cfg cfg_{};
	sock *sk;
};

TEST_F(netlink, a_unicast_returns_what_became_of_it)
{
	unsigned calls = 0;
	on_input = [&](sk_buff *skb) {
		calls += helper_nlmsg_hdr(skb)->nlmsg_type == 18;
	};
	EXPECT_EQ(netlink_unicast(sk, message(8), 0, MSG_DONTWAIT), 20);
	EXPECT_EQ(calls, 1U);
	sk_buff *gone = message(8);
	EXPECT_EQ(netlink_unicast(sk, gone, port, MSG_DONTWAIT), -ECONNREFUSED);
	EXPECT_DEATH(helper_nlmsg_free(gone), "not the module's");
	on_input = helper_nlmsg_free;
	EXPECT_DEATH(netlink_unicast(sk, message(8), 0, MSG_DONTWAIT), "not the module's");

	netlink_socket process(unit, port, 1);
	EXPECT_THROW(netlink_socket(unit, port), std::invalid_argument);
	EXPECT_EQ(netlink_unicast(sk, message(16), port, MSG_DONTWAIT), 20);
	EXPECT_EQ(netlink_unicast(sk, message(17), port, MSG_DONTWAIT), -EAGAIN);
	std::thread sender([&] { EXPECT_EQ(netlink_unicast(sk, message(18), port, 0), 20); });
	for (const int value : {16, 18}) {
		auto datagram = process.receive();
		for (; !datagram; datagram = process.receive())
			std::this_thread::yield();
		EXPECT_EQ(datagram->at(16), std::byte(value));
	}
	sender.join();
}

TEST_F(netlink, a_release_does_not_wait_for_callbacks)
{
	netlink_socket process(unit, port);
	on_input = [&, this](sk_buff *) {
		netlink_kernel_release(sk);
		EXPECT_EQ(process.send({}), -ECONNREFUSED);
	};
	EXPECT_EQ(process.send(std::array<std::byte, 16>{}), 0);
	EXPECT_THROW(netlink_socket(unit, port + 1), std::invalid_argument) << "no such protocol";
	sk = __netlink_kernel_create(&init_net, unit, nullptr, &cfg_);
}

using user_memory = kernel_test;

TEST_F(user_memory, copies_stop_at_the_end_and_at_the_first_fault)
{
	const user_buffer other(16);
	user_buffer user(16);
	auto *start = static_cast<std::byte *>(user.address());
	std::array<std::byte, 32> kernel{};
	const auto read = [&](const std::byte *from, std::size_t n) {
		kernel.fill(std::byte{0xee});
		return helper_copy_from_user(kernel.data(), from, n);
	};
	const auto write = [&](void *to, std::size_t n) {
		kernel.fill(std::byte{0xdd});
		return helper_copy_to_user(to, kernel.data(), n);
	};
	for (std::size_t i = 0; i < 16; i++)
		user.bytes()[i] = static_cast<std::byte>(i);
	EXPECT_EQ(read(start, 16), 0U);
	EXPECT_TRUE(std::ranges::equal(user.bytes(), std::span(kernel).first(16)));
	EXPECT_EQ(read(start + 10, 20), 14U);
	EXPECT_EQ(kernel[5], std::byte{15});
	EXPECT_EQ(kernel[6], std::byte{0xee});
	EXPECT_EQ(write(start + 15, 2), 1U);
	EXPECT_EQ(user.bytes()[15], std::byte{0xdd});
	for (std::byte *outside : {static_cast<std::byte *>(nullptr), start + 16, start - 1})
		EXPECT_EQ(read(outside, 4), 4U);
	EXPECT_EQ(write(kernel.data(), 1), 1U);
	void *gone = user_buffer(1).address();
	EXPECT_EQ(write(gone, 1), 1U);
	EXPECT_DEATH((void)*static_cast<volatile std::byte *>(start), "");

	user.fault(12, SIZE_MAX);
	user.fault(8, 2);
	user.fault(5, 0);
	EXPECT_EQ(read(start, 8), 0U);
	EXPECT_EQ(read(start, 9), 1U);
	EXPECT_EQ(write(start + 9, 1), 1U);
	EXPECT_EQ(write(start + 10, 4), 2U);
	EXPECT_EQ(user.bytes()[12], std::byte{12});
}

} // namespace
