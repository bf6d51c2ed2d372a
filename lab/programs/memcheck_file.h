// SPDX-License-Identifier: GPL-2.0-only
// The memcheck device as a file descriptor, for programs that need direct access.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <uapi/tarn_device.h>

#include "failure.h"

namespace lab
{

class memcheck_file
{
public:
	memcheck_file() : fd_(must(open(TARN_DEVICE_PATH, O_RDWR | O_CLOEXEC), TARN_DEVICE_PATH)) {}

	~memcheck_file()
	{
		close(fd_);
	}

	memcheck_file(const memcheck_file &) = delete;
	memcheck_file &operator=(const memcheck_file &) = delete;

	// Returns 0 or an errno.
	[[nodiscard]] int call(unsigned long request, void *argument) const
	{
		return ioctl(fd_, request, argument) == 0 ? 0 : errno;
	}

	[[nodiscard]] int command(std::uint32_t memtype, std::uint32_t cmd) const
	{
		memcheck_command record = {};

		record.memtype = memtype;
		record.cmd = cmd;
		return call(TARN_IOC_COMMAND, &record);
	}

	struct text {
		int error;
		std::uint64_t size;	  // from the returned header
		std::vector<char> buffer; // header, room, and a guard behind the room
	};

	static constexpr std::size_t guard_size = 64;
	static constexpr char guard_byte = '\x5a';

	[[nodiscard]] text read(std::uint32_t type, std::uint64_t size) const
	{
		text result = {
			0, 0,
			std::vector<char>(sizeof(memcheck_info) + size + guard_size, guard_byte)};
		memcheck_info header = {};

		header.type = type;
		header.size = size;
		std::memcpy(result.buffer.data(), &header, sizeof(header));
		result.error = call(TARN_IOC_READ_STACKS, result.buffer.data());
		std::memcpy(&header, result.buffer.data(), sizeof(header));
		result.size = header.size;
		return result;
	}

private:
	int fd_;
};

} // namespace lab
