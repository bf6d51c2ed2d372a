// SPDX-License-Identifier: GPL-2.0-only
// Usage: netlink_storm COUNT
// Four processes at once send COUNT datagrams to the lmkd channel, none of which is a handshake:
// truncated ones, wrong types, wrong lengths, noise, a handshake after another message. Checks that
// there is no answer. Prints how many had a complete header: "whole N".
#include <cstdint>
#include <random>
#include <vector>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <uapi/tarn_lmkd.h>
#include <unistd.h>

#include "failure.h"

namespace
{

using datagram = std::vector<char>;

void put_header(datagram &data, std::uint32_t length, std::uint16_t type, std::uint32_t port)
{
	nlmsghdr header = {};

	header.nlmsg_len = length;
	header.nlmsg_type = type;
	header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP;
	header.nlmsg_seq = 1;
	header.nlmsg_pid = port;
	const auto *bytes = reinterpret_cast<const char *>(&header);

	data.insert(data.end(), bytes, bytes + sizeof(header));
}

datagram make(std::mt19937 &random, std::uint32_t port)
{
	constexpr std::uint16_t types[] = {0, 1, 2, 3, 16, 18, 19, 0x1100, 0xffff};
	constexpr std::uint32_t lengths[] = {0, 1, 15, 16, 20, 4096, 0x7fffffff, 0xffffffff};
	datagram data;

	switch (random() % 4) {
	case 0: // a handshake cut short
		put_header(data, sizeof(nlmsghdr), NETLINK_LMKD_INIT, port);
		data.resize(1 + random() % (sizeof(nlmsghdr) - 1));
		break;
	case 1: // a type or a length that means nothing, with any payload
		put_header(data, lengths[random() % std::size(lengths)],
			   types[random() % std::size(types)], port);
		data.resize(data.size() + random() % 5000);
		break;
	case 2: // a handshake that is not the first message
		put_header(data, sizeof(nlmsghdr), 99, port);
		put_header(data, sizeof(nlmsghdr), NETLINK_LMKD_INIT, port);
		break;
	default: // noise
		data.resize(1 + random() % 200);
		for (char &byte : data)
			byte = static_cast<char>(random());
		if (data.size() >= sizeof(nlmsghdr))
			data[5] = '\x7f'; // no handshake by chance
	}
	return data;
}

// Returns how many of its datagrams had a complete header.
int storm(unsigned int seed, int count)
{
	const int fd =
		lab::must(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, LMKD_NETLINK_UNIT), "socket");
	sockaddr_nl address = {};
	socklen_t size = sizeof(address);

	address.nl_family = AF_NETLINK;
	lab::must(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), "bind");
	lab::must(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), "getsockname");

	std::mt19937 random(seed);
	sockaddr_nl kernel = {};
	int whole = 0;

	kernel.nl_family = AF_NETLINK;
	for (int i = 0; i < count; i++) {
		const datagram data = make(random, address.nl_pid);

		lab::must(sendto(fd, data.data(), data.size(), 0,
				 reinterpret_cast<sockaddr *>(&kernel), sizeof(kernel)),
			  "sendto");
		whole += data.size() >= sizeof(nlmsghdr);
	}
	char reply[64];

	if (recv(fd, reply, sizeof(reply), MSG_DONTWAIT) >= 0 || errno != EAGAIN)
		lab::fail("the channel answered");
	return whole;
}

} // namespace

int main(int argc, char **argv)
{
	constexpr int senders = 4;
	const int count = argc > 1 ? std::atoi(argv[1]) : 400;
	int results[2];
	int whole = 0;

	lab::must(pipe(results), "pipe");
	for (unsigned int sender = 0; sender < senders; sender++) {
		if (fork() == 0) {
			const int sent = storm(sender, count / senders);

			_exit(write(results[1], &sent, sizeof(sent)) != sizeof(sent));
		}
	}
	for (int sender = 0; sender < senders; sender++) {
		int status = 0;
		int sent = 0;

		wait(&status);
		if (status != 0 || read(results[0], &sent, sizeof(sent)) != sizeof(sent))
			lab::fail("a sender failed");
		whole += sent;
	}
	std::printf("whole %d\n", whole);
}
