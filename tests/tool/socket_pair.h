// SPDX-License-Identifier: GPL-2.0-only
// A channel between the tool and a kernel that a test plays.
#pragma once

#include <stdexcept>

#include <sys/socket.h>
#include <tarnctl/device/file_descriptor.h>

namespace tarn
{

struct socket_pair {
	// SOCK_DGRAM or SOCK_SEQPACKET.
	explicit socket_pair(int type)
	{
		int ends[2];

		if (socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, ends) != 0)
			throw std::runtime_error("no socket pair");
		kernels = file_descriptor(ends[0]);
		tools = file_descriptor(ends[1]);
	}

	file_descriptor kernels;
	file_descriptor tools;
};

} // namespace tarn
