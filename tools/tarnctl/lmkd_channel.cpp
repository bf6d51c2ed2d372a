// SPDX-License-Identifier: GPL-2.0-only
#include "lmkd_channel.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "control_device.h"

namespace tarn
{

namespace
{

constexpr int protocol = 31;
constexpr std::uint16_t type_handshake = 17;
constexpr std::uint16_t type_notify = 18;

struct notify_message {
	nlmsghdr header;
	std::uint32_t value;
};
static_assert(sizeof(notify_message) == 20);

[[noreturn]] void complain(const char *what)
{
	throw device_error(fmt::format("{}: {}", what, reason(errno)));
}

// The kernel picks the port.
std::uint32_t bind_port(int socket)
{
	sockaddr_nl address = {};
	socklen_t length = sizeof(address);

	address.nl_family = AF_NETLINK;
	if (bind(socket, reinterpret_cast<const sockaddr *>(&address), length) < 0 ||
	    connect(socket, reinterpret_cast<const sockaddr *>(&address), length) < 0 ||
	    getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) < 0)
		complain("the netlink socket gets no port");
	return address.nl_pid;
}

} // namespace

const char *notification_name(std::uint32_t value)
{
	switch (value) {
	case 8:
		return "slab leak";
	case 16:
		return "vmalloc leak";
	default:
		return nullptr;
	}
}

std::optional<notification> parse_notification(std::uint32_t sender,
					       std::span<const std::byte> datagram)
{
	constexpr std::uint32_t kernel = 0;
	notify_message message = {};

	if (sender != kernel || datagram.size() != sizeof(message))
		return std::nullopt;
	std::memcpy(&message, datagram.data(), sizeof(message));
	if (message.header.nlmsg_len != sizeof(message) || message.header.nlmsg_type != type_notify)
		return std::nullopt;
	return notification{message.header.nlmsg_seq, message.value};
}

lmkd_channel::lmkd_channel()
	: socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol))
{
	if (socket_.get() < 0)
		complain("no module listens on the lmkd channel, netlink protocol 31");
	port_ = bind_port(socket_.get());
}

void lmkd_channel::register_port()
{
	nlmsghdr handshake = {};

	handshake.nlmsg_len = sizeof(handshake);
	handshake.nlmsg_type = type_handshake;
	handshake.nlmsg_pid = port_;
	if (send(socket_.get(), &handshake, sizeof(handshake), MSG_NOSIGNAL) < 0)
		complain("the module takes no registration on the lmkd channel");
}

std::optional<notification> lmkd_channel::receive()
{
	// Larger than a notification, so that a longer datagram shows as one.
	std::array<std::byte, 64> datagram;
	sockaddr_nl sender = {};
	socklen_t length = sizeof(sender);
	const ssize_t n = recvfrom(socket_.get(), datagram.data(), datagram.size(), 0,
				   reinterpret_cast<sockaddr *>(&sender), &length);

	if (n >= 0)
		return parse_notification(sender.nl_pid,
					  std::span(datagram).first(static_cast<std::size_t>(n)));
	if (errno == ENOBUFS)
		throw notifications_lost("notifications were lost: more came than were read");
	if (errno != EAGAIN && errno != EINTR)
		complain("the lmkd channel cannot be read");
	return std::nullopt;
}

} // namespace tarn
