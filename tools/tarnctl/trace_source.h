// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tarn::trace
{

/**
 * The text of a file, which may be xz-compressed; its first bytes tell, not its name. Only a
 * regular file will do, because a trace is read more than once. Not for use by two threads at once.
 */
class source
{
public:
	/** Throws trace_error if the file cannot be opened or is not a regular file. */
	explicit source(const std::string &path);
	~source();
	source(const source &) = delete;
	source &operator=(const source &) = delete;

	/** Stores up to @room bytes of text; 0 at the end. Throws trace_error. */
	std::size_t read(char *to, std::size_t room);

	const std::string &path() const
	{
		return path_;
	}

	/** Bytes of the file, as stored, that were used so far. */
	std::uint64_t position() const
	{
		return position_;
	}

	/** Bytes of the file, as stored, at the time it was opened. */
	std::uint64_t size() const
	{
		return size_;
	}

private:
	struct decoder;

	std::size_t read_file(void *to, std::size_t room);
	std::size_t read_xz(char *to, std::size_t room);

	std::string path_;
	int fd_;
	std::uint64_t position_ = 0;
	std::uint64_t size_ = 0;
	std::unique_ptr<decoder> xz_;
};

} // namespace tarn::trace
