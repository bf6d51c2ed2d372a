// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/lmkd_channel.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <uapi/tarn_lmkd.h>

#include <tarnctl/device/device_error.h>

namespace tarn
{

namespace
{

// Lets the kernel pick the port.
std::uint32_t bind_port(int socket)
{
	sockaddr_nl address = {};
	socklen_t length = sizeof(address);

	address.nl_family = AF_NETLINK;
	if (bind(socket, reinterpret_cast<const sockaddr *>(&address), length) < 0 ||
	    connect(socket, reinterpret_cast<const sockaddr *>(&address), length) < 0 ||
	    getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) < 0)
		throw_errno("cannot bind the netlink socket");
	return address.nl_pid;
}

} // namespace

const char *notification_name(std::uint32_t value)
{
	switch (value) {
	case LMKD_EVENT_SLAB_LEAK:
		return "slab leak";
	case LMKD_EVENT_VMALLOC_LEAK:
		return "vmalloc leak";
	default:
		return nullptr;
	}
}

std::optional<notification> parse_notification(std::uint32_t sender,
					       std::span<const std::byte> datagram)
{
	constexpr std::uint32_t kernel = 0;
	lmkd_notify_message message = {};

	if (sender != kernel || datagram.size() != sizeof(message))
		return std::nullopt;
	std::memcpy(&message, datagram.data(), sizeof(message));
	if (message.header.length != sizeof(message) || message.header.type != NETLINK_LMKD_NOTIFY)
		return std::nullopt;
	return notification{message.header.sequence, message.value};
}

lmkd_channel::lmkd_channel()
	: socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, LMKD_NETLINK_UNIT))
{
	if (socket_.get() < 0 && errno == EPROTONOSUPPORT)
		throw device_error(
			fmt::format("the lmkd channel (netlink protocol {}) is not open; is "
				    "the module loaded?",
				    LMKD_NETLINK_UNIT));
	if (socket_.get() < 0)
		throw_errno("cannot create a netlink socket");
	port_ = bind_port(socket_.get());
}

void lmkd_channel::register_port()
{
	lmkd_header handshake = {};

	handshake.length = sizeof(handshake);
	handshake.type = NETLINK_LMKD_INIT;
	handshake.port = port_;
	if (send(socket_.get(), &handshake, sizeof(handshake), MSG_NOSIGNAL) < 0)
		throw_errno("the module rejected the registration on the lmkd channel");
}

std::optional<notification> lmkd_channel::receive()
{
	// Larger than a notification, so that a longer datagram is noticed.
	std::array<std::byte, 64> datagram;
	sockaddr_nl sender = {};
	socklen_t length = sizeof(sender);
	const ssize_t n = recvfrom(socket_.get(), datagram.data(), datagram.size(), 0,
				   reinterpret_cast<sockaddr *>(&sender), &length);

	if (n >= 0)
		return parse_notification(sender.nl_pid,
					  std::span(datagram).first(static_cast<std::size_t>(n)));
	if (errno == ENOBUFS)
		throw notifications_lost(
			"notifications were lost: they came faster than they were read");
	if (errno != EAGAIN && errno != EINTR)
		throw_errno("cannot read the lmkd channel");
	return std::nullopt;
}

} // namespace tarn
