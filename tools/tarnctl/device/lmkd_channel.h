// SPDX-License-Identifier: GPL-2.0-only
// The netlink channel on which the memory adapter notifies lmkd of leaks, from lmkd's side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include <tarnctl/device/file_descriptor.h>

namespace tarn
{

struct notification {
	std::uint32_t sequence = 0;
	std::uint32_t value = 0;

	bool operator==(const notification &) const = default;
};

// What a notification's value stands for; null for the value of another module.
const char *notification_name(std::uint32_t value);

// The notification in a datagram that a netlink port sent. Nothing if it is malformed or not from
// the kernel.
std::optional<notification> parse_notification(std::uint32_t sender,
					       std::span<const std::byte> datagram);

// More came than the socket could hold. The channel can still be read.
struct notifications_lost : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Not thread-safe.
class lmkd_channel
{
public:
	// Throws device_error if the module has not opened the channel.
	lmkd_channel();
	// Takes over a socket that is connected to the module and bound to the port.
	lmkd_channel(file_descriptor socket, std::uint32_t port)
		: socket_(std::move(socket)), port_(port)
	{
	}

	// From now on notifications come to this socket: the last one to register gets them. Throws
	// device_error.
	void register_port();

	// Takes one datagram if there is one. Throws notifications_lost and device_error.
	std::optional<notification> receive();

	[[nodiscard]] int socket() const
	{
		return socket_.get();
	}

	[[nodiscard]] std::uint32_t port() const
	{
		return port_;
	}

private:
	file_descriptor socket_;
	std::uint32_t port_ = 0;
};

} // namespace tarn
