// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/spool.h>

#include <tarnctl/trace/error.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn::trace
{

namespace
{

[[noreturn]] void fail(const std::string &name, const char *what)
{
	throw trace_error(name, what + std::generic_category().message(errno));
}

file_descriptor make_temporary(const std::string &name)
{
	const char *directory = getenv("TMPDIR");
	std::string path = std::string(directory ? directory : "/tmp") + "/tarnctl-XXXXXX";
	file_descriptor file(mkostemp(path.data(), O_CLOEXEC));

	if (file.get() < 0)
		fail(name, "cannot be copied to a temporary file: ");
	unlink(path.c_str());
	return file;
}

void write_all(int to, const char *data, std::size_t size, const std::string &name)
{
	while (size != 0) {
		const ssize_t n = write(to, data, size);

		if (n < 0 && errno != EINTR)
			fail(name, "cannot be copied to a temporary file: ");
		if (n > 0) {
			data += n;
			size -= static_cast<std::size_t>(n);
		}
	}
}

void copy_all(int from, int to, const std::string &name)
{
	std::array<char, 64U << 10> buffer;

	for (;;) {
		const ssize_t n = read(from, buffer.data(), buffer.size());

		if (n == 0)
			return;
		if (n < 0 && errno != EINTR)
			fail(name, "cannot be read: ");
		if (n > 0)
			write_all(to, buffer.data(), static_cast<std::size_t>(n), name);
	}
}

bool is_pipe(int fd)
{
	struct stat st = {};

	return fstat(fd, &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
}

} // namespace

spooled_trace::spooled_trace(const std::string &path) : path_(path)
{
	const bool standard_input = path == "-";
	file_descriptor opened;

	if (standard_input) {
		path_.name = "standard input";
	} else {
		struct stat st = {};

		if (stat(path.c_str(), &st) != 0 || !S_ISFIFO(st.st_mode))
			return;
		opened = file_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
		if (opened.get() < 0)
			fail(path_.name, "cannot be opened: ");
	}
	const int from = standard_input ? STDIN_FILENO : opened.get();

	if (standard_input && !is_pipe(from)) {
		path_.file = "/proc/self/fd/0";
		return;
	}
	copy_ = make_temporary(path_.name);
	copy_all(from, copy_.get(), path_.name);
	path_.file = "/proc/self/fd/" + std::to_string(copy_.get());
}

} // namespace tarn::trace
