// SPDX-License-Identifier: GPL-2.0-only
#include "trace_source.h"

#include "trace_error.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <lzma.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn::trace
{

namespace
{

constexpr std::array<unsigned char, 6> xz_magic = {0xfd, '7', 'z', 'X', 'Z', 0x00};

/* `xz -9` needs 65 MiB; what asks for far more than that was made to exhaust memory. */
constexpr std::uint64_t xz_memory_limit = 256U << 20;

std::string reason(int error)
{
	return std::generic_category().message(error);
}

const char *xz_reason(lzma_ret ret)
{
	switch (ret) {
	case LZMA_BUF_ERROR:
		return "the xz data is cut off";
	case LZMA_MEM_ERROR:
		return "there is not enough memory to decompress it";
	case LZMA_MEMLIMIT_ERROR:
		return "decompressing it takes more than 256 MiB of memory";
	case LZMA_OPTIONS_ERROR:
		return "the xz data uses an unsupported option";
	default:
		return "the xz data is broken";
	}
}

} // namespace

struct source::decoder {
	lzma_stream stream = LZMA_STREAM_INIT;
	std::array<std::uint8_t, 64U << 10> input;
	lzma_action action = LZMA_RUN;
	bool ended = false;

	decoder() = default;
	decoder(const decoder &) = delete;
	decoder &operator=(const decoder &) = delete;
	~decoder()
	{
		lzma_end(&stream);
	}
};

/* Opening a pipe for reading would block until somebody writes; O_NONBLOCK gets past that. */
source::source(const std::string &path)
	: path_(path), fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
	if (fd_ < 0)
		throw trace_error(path_, "cannot be opened: " + reason(errno));
	try {
		struct stat st = {};
		if (fstat(fd_, &st) != 0)
			throw trace_error(path_, "cannot be examined: " + reason(errno));
		if (S_ISDIR(st.st_mode))
			throw trace_error(path_, "is a directory, not a file");
		if (!S_ISREG(st.st_mode))
			throw trace_error(path_, "is not a regular file");
		size_ = static_cast<std::uint64_t>(st.st_size);

		std::array<unsigned char, xz_magic.size()> head = {};
		if (pread(fd_, head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) &&
		    head == xz_magic) {
			xz_ = std::make_unique<decoder>();
			const lzma_ret ret = lzma_stream_decoder(&xz_->stream, xz_memory_limit,
								 LZMA_CONCATENATED);
			if (ret != LZMA_OK)
				throw trace_error(path_, xz_reason(ret));
		}
	} catch (...) {
		close(fd_);
		throw;
	}
}

source::~source()
{
	close(fd_);
}

std::size_t source::read(char *to, std::size_t room)
{
	return xz_ ? read_xz(to, room) : read_file(to, room);
}

std::size_t source::read_file(void *to, std::size_t room)
{
	ssize_t n = 0;
	do {
		n = ::read(fd_, to, room);
	} while (n < 0 && errno == EINTR);
	if (n < 0)
		throw trace_error(path_, "cannot be read: " + reason(errno));
	position_ += static_cast<std::uint64_t>(n);
	return static_cast<std::size_t>(n);
}

std::size_t source::read_xz(char *to, std::size_t room)
{
	lzma_stream &stream = xz_->stream;
	stream.next_out = reinterpret_cast<std::uint8_t *>(to);
	stream.avail_out = room;
	while (stream.avail_out == room && !xz_->ended) {
		if (stream.avail_in == 0 && xz_->action == LZMA_RUN) {
			stream.next_in = xz_->input.data();
			stream.avail_in = read_file(xz_->input.data(), xz_->input.size());
			if (stream.avail_in == 0)
				xz_->action = LZMA_FINISH;
		}
		const lzma_ret ret = lzma_code(&stream, xz_->action);
		if (ret == LZMA_STREAM_END)
			xz_->ended = true;
		else if (ret != LZMA_OK)
			throw trace_error(path_, xz_reason(ret));
	}
	return room - stream.avail_out;
}

} // namespace tarn::trace
