// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/source.h>

#include <tarnctl/trace/error.h>

#include <algorithm>
#include <archive.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

constexpr std::size_t block_size = 64U << 10;

struct known_kind {
	std::size_t at;
	std::string_view magic;
	const char *hint; // follows the file's name
};

// Compressed files are taken; these are not, whether compressed or not.
constexpr std::array known_kinds = {
	known_kind{0,
		   "\x7f"
		   "ELF"sv,
		   "seems to be a program or a core dump (ELF), not a trace"},
	known_kind{0, "\x17\x08\x44tracing"sv,
		   "seems to be trace-cmd's binary file; run `trace-cmd report FILE > TEXT` and "
		   "hunt in TEXT"},
	known_kind{
		0, "PERFILE2"sv,
		"seems to be perf's binary file; record through tracefs instead, as docs/hunt.md "
		"says"},
	known_kind{257, "ustar"sv,
		   "seems to be a tar archive; extract the trace from it and hunt in that"},
	known_kind{0, "PK\x03\x04"sv,
		   "seems to be a zip archive; extract the trace from it and hunt in that"},
};

constexpr std::array compressed = {
	"\xfd"
	"7zXZ"sv,
	"\x1f\x8b"sv,
	"\x28\xb5\x2f\xfd"sv,
	"\x04\x22\x4d\x18"sv,
	"BZh"sv,
	"\x1f\x9d"sv,
	"LZIP"sv,
};

std::string errno_message(int error)
{
	return std::generic_category().message(error);
}

} // namespace

void source::archive_free::operator()(archive *a) const
{
	archive_read_free(a);
}

source::source(const trace_path &path) : name_(path.name)
{
	open_file(path);
	try {
		std::array<char, 8> head = {};
		const ssize_t n = pread(fd_, head.data(), head.size(), 0);
		const std::string_view start(head.data(),
					     static_cast<std::size_t>(std::max<ssize_t>(n, 0)));

		if (size_ == 0)
			throw trace_error(name_, "is empty");
		if (std::ranges::any_of(compressed, [start](std::string_view magic) {
			    return start.starts_with(magic);
		    }))
			open_archive();
	} catch (...) {
		close(fd_);
		throw;
	}
}

source::~source()
{
	close(fd_);
}

// Opening a pipe for reading would block until somebody writes; O_NONBLOCK gets past that.
void source::open_file(const trace_path &path)
{
	struct stat st = {};

	fd_ = open(path.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
	if (fd_ < 0)
		throw trace_error(name_, "cannot be opened: " + errno_message(errno));
	const int error = fstat(fd_, &st) != 0 ? errno : 0;

	if (error == 0 && S_ISREG(st.st_mode)) {
		size_ = static_cast<std::uint64_t>(st.st_size);
		return;
	}
	close(fd_);
	if (error != 0)
		throw trace_error(name_, "cannot be examined: " + errno_message(error));
	throw trace_error(name_, S_ISDIR(st.st_mode) ? "is a directory; name the trace file in it"
						     : "is not a regular file");
}

void source::open_archive()
{
	archive_.reset(archive_read_new());
	if (!archive_)
		throw std::bad_alloc();
	archive_read_support_filter_all(archive_.get());
	archive_read_support_format_raw(archive_.get());
	archive_entry *entry = nullptr;

	if (archive_read_open_fd(archive_.get(), fd_, block_size) != ARCHIVE_OK ||
	    archive_read_next_header(archive_.get(), &entry) != ARCHIVE_OK)
		throw trace_error(name_, "is compressed, but cut off or broken at its start");
}

std::uint64_t source::position() const
{
	return archive_ ? static_cast<std::uint64_t>(archive_filter_bytes(archive_.get(), -1))
			: position_;
}

void source::check_kind(const char *head, std::size_t size) const
{
	const std::string_view start(head, size);

	for (const known_kind &kind : known_kinds) {
		if (size > kind.at && start.substr(kind.at).starts_with(kind.magic))
			throw trace_error(name_, kind.hint);
	}
}

std::size_t source::read(char *to, std::size_t room)
{
	const std::size_t n = archive_ ? read_archive(to, room) : read_file(to, room);

	if (first_) {
		check_kind(to, n);
		first_ = false;
	}
	return n;
}

std::size_t source::read_file(char *to, std::size_t room)
{
	ssize_t n = 0;

	do {
		n = ::read(fd_, to, room);
	} while (n < 0 && errno == EINTR);
	if (n < 0)
		throw trace_error(name_, "cannot be read: " + errno_message(errno));
	position_ += static_cast<std::uint64_t>(n);
	return static_cast<std::size_t>(n);
}

// What was decompressed before the data broke off is as good as any.
std::size_t source::read_archive(char *to, std::size_t room)
{
	if (!broken_.empty())
		return 0;
	while (block_left_ == 0) {
		la_int64_t offset = 0;
		const int ret =
			archive_read_data_block(archive_.get(), &block_, &block_left_, &offset);

		if (ret == ARCHIVE_EOF)
			return 0;
		if (ret != ARCHIVE_OK) {
			broken_ = "its compressed data is cut off or broken";
			block_left_ = 0;
			return 0;
		}
	}
	const std::size_t n = std::min(room, block_left_);

	memcpy(to, block_, n);
	block_ = static_cast<const char *>(block_) + n;
	block_left_ -= n;
	return n;
}

} // namespace tarn::trace
