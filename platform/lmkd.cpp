// SPDX-License-Identifier: GPL-2.0-only
#include "lmkd.h"

#include <cstring>
#include <span>
#include <stdexcept>

#include <kernel/netlink.h>

namespace platform
{
namespace
{

constexpr int unit = 31;
constexpr u16 type_handshake = 17;
constexpr u16 type_notify = 18;

struct message {
	nlmsghdr header;
	u32 value;
};
static_assert(sizeof(message) == 20);

} // namespace

lmkd::lmkd(std::uint32_t port, std::size_t queue_capacity) : port_(port), capacity_(queue_capacity)
{
	come_back();
}

int lmkd::handshake()
{
	nlmsghdr header{};
	header.nlmsg_len = NLMSG_HDRLEN;
	header.nlmsg_type = type_handshake;
	header.nlmsg_pid = port_;
	return socket_.value().send(std::as_bytes(std::span(&header, 1)));
}

std::vector<lmkd_notification> lmkd::collect()
{
	std::vector<lmkd_notification> collected;
	while (const auto datagram = socket_.value().receive()) {
		message m{};
		if (datagram->size() != sizeof(m))
			throw std::runtime_error("lmkd: a notification of the wrong length");
		std::memcpy(&m, datagram->data(), sizeof(m));
		if (m.header.nlmsg_len != sizeof(m) || m.header.nlmsg_type != type_notify ||
		    m.header.nlmsg_flags != 0 || m.header.nlmsg_pid != 0)
			throw std::runtime_error("lmkd: a notification with a bad header");
		collected.push_back({m.header.nlmsg_seq, m.value});
	}
	return collected;
}

void lmkd::go_away()
{
	socket_.reset();
}

void lmkd::come_back()
{
	socket_.emplace(unit, port_, capacity_);
}

} // namespace platform
