// SPDX-License-Identifier: GPL-2.0-only
#include "lmkd.h"

#include <cstring>
#include <span>
#include <stdexcept>

#include <uapi/tarn_lmkd.h>

namespace platform
{

lmkd::lmkd(std::uint32_t port, std::size_t queue_capacity) : port_(port), capacity_(queue_capacity)
{
	come_back();
}

int lmkd::handshake()
{
	lmkd_header header{};
	header.length = sizeof(header);
	header.type = NETLINK_LMKD_INIT;
	header.port = port_;
	return socket_.value().send(std::as_bytes(std::span(&header, 1)));
}

std::vector<lmkd_notification> lmkd::collect()
{
	std::vector<lmkd_notification> collected;
	while (const auto datagram = socket_.value().receive()) {
		lmkd_notify_message m{};
		if (datagram->size() != sizeof(m))
			throw std::runtime_error("lmkd: a notification of the wrong length");
		std::memcpy(&m, datagram->data(), sizeof(m));
		if (m.header.length != sizeof(m) || m.header.type != NETLINK_LMKD_NOTIFY ||
		    m.header.flags != 0 || m.header.port != 0)
			throw std::runtime_error("lmkd: a notification with a bad header");
		collected.push_back({m.header.sequence, m.value});
	}
	return collected;
}

void lmkd::go_away()
{
	socket_.reset();
}

void lmkd::come_back()
{
	socket_.emplace(LMKD_NETLINK_UNIT, port_, capacity_);
}

} // namespace platform
