// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/source.h>

#include <memory>
#include <string_view>

namespace tarn::trace
{

// The lines of a trace file, in memory that does not depend on the file's length. Not for use by
// two threads at once.
class line_reader
{
public:
	// Longest line taken, in bytes. What exceeds it is no line of a trace and is passed over.
	static constexpr std::size_t line_limit = std::size_t{1} << 20;

	// Throws trace_error if the file cannot be opened.
	explicit line_reader(const trace_path &path);

	// Sets the line, without its line end, to memory that is valid until the next call. False
	// at the end of the file. Throws trace_error if the file cannot be read.
	bool next(std::string_view &line);

	// Number of the line that next() gave last; the first is 1.
	std::uint64_t line_number() const
	{
		return line_number_;
	}

	std::uint64_t overlong_lines() const
	{
		return overlong_;
	}

	// After next() gave false: whether text without a line end is left.
	bool ends_cut() const
	{
		return begin_ != end_ || overlong_now_;
	}

	// The file, for its name and for progress in bytes as stored.
	const source &input() const
	{
		return source_;
	}

private:
	bool fill();

	source source_;
	std::unique_ptr<char[]> buffer_; // not cleared: few traces use all of it
	std::size_t begin_ = 0;
	std::size_t end_ = 0;
	std::uint64_t line_number_ = 0;
	std::uint64_t overlong_ = 0;
	bool overlong_now_ = false; // the rest of an overlong line comes next
};

} // namespace tarn::trace
