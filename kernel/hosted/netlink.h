// SPDX-License-Identifier: GPL-2.0-only
// User space's end of netlink.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

struct module;

namespace hosted
{

// A user process's socket, bound to a port of a unit during its lifetime. It keeps the module
// loaded that offers the unit, even when that module has released its own socket. Thread safe.
class netlink_socket
{
public:
	// The receive queue holds capacity datagrams. Throws if the port is 0 or taken, or if no
	// kernel socket offers the unit.
	netlink_socket(int unit, std::uint32_t port, std::size_t capacity = 64);
	~netlink_socket();
	netlink_socket(const netlink_socket &) = delete;
	netlink_socket &operator=(const netlink_socket &) = delete;

	// Sends one datagram of any length to the kernel's socket, whose input callback runs on
	// this thread. Returns 0 or -ECONNREFUSED.
	int send(std::span<const std::byte> datagram);
	// Removes and returns the oldest datagram in the queue; never waits.
	std::optional<std::vector<std::byte>> receive();

private:
	const int unit_;
	const std::uint32_t port_;
	const struct module *owner_;
};

} // namespace hosted
