// SPDX-License-Identifier: GPL-2.0-only
// The low-memory killer daemon's end of the notification channel.
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

// The daemon. If it does not collect its notifications, its queue fills up. Use on one thread.
class lmkd
{
public:
	// Starts on a netlink port, not yet registered with the module.
	explicit lmkd(std::uint32_t port, std::size_t queue_capacity = 64);

	// Registers the port with the module. Returns 0, or -ECONNREFUSED if the channel is closed.
	int handshake();
	// The notifications that have arrived, oldest first. Throws if one is malformed.
	std::vector<lmkd_notification> collect();
	// The daemon dies along with its queue; it comes back on the same port.
	void go_away();
	void come_back();

private:
	std::uint32_t port_;
	std::size_t capacity_;
	std::optional<hosted::netlink_socket> socket_;
};

} // namespace platform
