// SPDX-License-Identifier: GPL-2.0-only
// The netlink channel on which the memory adapter tells lmkd of leaks, from lmkd's side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include "file_descriptor.h"

namespace tarn
{

struct notification {
	std::uint32_t sequence = 0;
	std::uint32_t value = 0;

	bool operator==(const notification &) const = default;
};

// What a notification's value stands for; null for a value of another module's.
const char *notification_name(std::uint32_t value);

// The notification in a datagram from a netlink port, or none if it is malformed or not the
// kernel's.
std::optional<notification> parse_notification(std::uint32_t sender,
					       std::span<const std::byte> datagram);

// More came than the socket could hold; it goes on with the next.
struct notifications_lost : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Not for use by two threads at once.
class lmkd_channel
{
public:
	// Throws device_error if no module listens.
	lmkd_channel();
	// Takes over a socket that is connected to the module and bound to the port.
	lmkd_channel(file_descriptor socket, std::uint32_t port)
		: socket_(std::move(socket)), port_(port)
	{
	}

	// Has notifications sent here; whoever registered before gets no more. Throws device_error.
	void register_port();

	// Takes one datagram, if there is any. Throws notifications_lost, and device_error.
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
