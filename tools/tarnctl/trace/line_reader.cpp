// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/line_reader.h>

#include <cstring>

namespace tarn::trace
{

namespace
{

// Small enough to stay in the second-level cache between filling and parsing.
constexpr std::size_t chunk = 128U << 10;

} // namespace

line_reader::line_reader(const trace_path &path)
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
			std::size_t size = static_cast<std::size_t>(
				static_cast<const char *>(newline) - start);

			begin_ += size + 1;
			line_number_++;
			searched = 0;
			if (overlong_now_) {
				overlong_now_ = false;
				overlong_++;
				continue;
			}
			// A capture over a serial line ends its lines in CR LF.
			if (size != 0 && start[size - 1] == '\r')
				size--;
			line = {start, size};
			return true;
		}
		if (length >= line_limit) {
			overlong_now_ = true;
			begin_ = end_;
		}
		searched = end_ - begin_;
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
	const std::size_t n = source_.read(buffer_.get() + end_, chunk);

	end_ += n;
	return n != 0;
}

} // namespace tarn::trace
