// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <utility>

#include <unistd.h>

namespace tarn
{

// Owns an open file; a negative number means none.
class file_descriptor
{
public:
	explicit file_descriptor(int fd = -1) : fd_(fd) {}
	file_descriptor(file_descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
	file_descriptor &operator=(file_descriptor &&other) noexcept
	{
		std::swap(fd_, other.fd_);
		return *this;
	}
	~file_descriptor()
	{
		if (fd_ >= 0)
			close(fd_);
	}

	[[nodiscard]] int get() const
	{
		return fd_;
	}

private:
	int fd_;
};

} // namespace tarn
