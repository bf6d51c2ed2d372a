// SPDX-License-Identifier: GPL-2.0-only
#include "trace_line_reader.h"

#include "trace_error.h"

#include <cstring>

namespace tarn::trace
{

namespace
{

/* Small enough to stay in the second-level cache between filling and parsing. */
constexpr std::size_t chunk = 128U << 10;

} // namespace

line_reader::line_reader(const std::string &path)
	: source_(path), buffer_(std::make_unique_for_overwrite<char[]>(line_limit + chunk))
{
}

bool line_reader::next(std::string_view &line)
{
	std::size_t searched = 0;
	for (;;) {
		const char *start = buffer_.get() + begin_;
		const std::size_t length = end_ - begin_;
		const void *newline = memchr(start + searched, '\n', length - searched);
		if (newline != nullptr) {
			std::size_t size = static_cast<const char *>(newline) - start;
			begin_ += size + 1;
			line_number_++;
			/* A capture over a serial line ends its lines in CR LF. */
			if (size != 0 && start[size - 1] == '\r')
				size--;
			line = {start, size};
			return true;
		}
		searched = length;
		if (!fill())
			return false;
	}
}

bool line_reader::fill()
{
	if (begin_ != 0) {
		memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
		end_ -= begin_;
		begin_ = 0;
	}
	if (end_ >= line_limit)
		throw trace_error(source_.path(), line_number_ + 1,
				  "is longer than any line of a kernel trace");
	const std::size_t n = source_.read(buffer_.get() + end_, chunk);
	end_ += n;
	return n != 0;
}

} // namespace tarn::trace
