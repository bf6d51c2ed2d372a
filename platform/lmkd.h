// SPDX-License-Identifier: GPL-2.0-only
// The low-memory killer daemon's side of the notification channel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <hosted/netlink.h>

namespace platform
{

struct lmkd_notification {
	std::uint32_t seq;
	std::uint32_t value;

	bool operator==(const lmkd_notification &) const = default;
};

// A daemon that does not collect its notifications leaves its queue to fill. Use on one thread.
class lmkd
{
public:
	// Comes up at a netlink port, not yet known to the module.
	explicit lmkd(std::uint32_t port, std::size_t queue_capacity = 64);

	// Tells the module the port. Returns 0, or -ECONNREFUSED when the channel is closed.
	int handshake();
	// The notifications that have arrived, oldest first. Throws on a malformed one.
	std::vector<lmkd_notification> collect();
	// The daemon dies, with what its queue holds, and comes up again at the same port.
	void go_away();
	void come_back();

private:
	std::uint32_t port_;
	std::size_t capacity_;
	std::optional<hosted::netlink_socket> socket_;
};

} // namespace platform
