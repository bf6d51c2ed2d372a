// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

struct archive;

namespace tarn::trace
{

// Where a trace is, and what the user calls it.
struct trace_path {
	std::string file;
	std::string name;

	// NOLINTNEXTLINE(google-explicit-constructor): a path is a trace by itself
	trace_path(const std::string &path) : file(path), name(path) {}
	trace_path(std::string file, std::string name)
		: file(std::move(file)), name(std::move(name))
	{
	}
};

// The text of a file, plain or compressed in any way that libarchive knows; the first bytes tell,
// not the name. Only a regular file will do, because a trace is read more than once. Not for use by
// two threads at once.
class source
{
public:
	// Throws trace_error if the file cannot be opened, or is recognised as something else than
	// text.
	explicit source(const trace_path &path);
	~source();
	source(const source &) = delete;
	source &operator=(const source &) = delete;

	// Stores up to that many bytes of text; 0 at the end. Throws trace_error.
	std::size_t read(char *to, std::size_t room);

	// What the user calls the file.
	const std::string &name() const
	{
		return name_;
	}

	// Bytes of the file, as stored, that were used so far.
	std::uint64_t position() const;

	// Bytes of the file, as stored, at the time it was opened.
	std::uint64_t size() const
	{
		return size_;
	}

	// One clause that says how the compressed data broke off; empty if it did not. The text
	// ends there.
	const std::string &broken() const
	{
		return broken_;
	}

private:
	struct archive_free {
		void operator()(archive *a) const;
	};

	void open_file(const trace_path &path);
	void open_archive();
	void check_kind(const char *head, std::size_t size) const;
	std::size_t read_file(char *to, std::size_t room);
	std::size_t read_archive(char *to, std::size_t room);

	std::string name_;
	int fd_ = -1;
	std::uint64_t position_ = 0;
	std::uint64_t size_ = 0;
	std::unique_ptr<archive, archive_free> archive_; // of compressed files
	const void *block_ = nullptr;			 // decompressed, not yet read
	std::size_t block_left_ = 0;
	bool first_ = true; // nothing is read yet
	std::string broken_;
};

} // namespace tarn::trace
