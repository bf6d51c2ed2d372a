// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/terminal/output.h>

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace tarn
{

namespace
{

bool write_all(int file, std::string_view text) noexcept
{
	while (!text.empty()) {
		const ssize_t n = write(file, text.data(), text.size());

		if (n < 0 && errno != EINTR)
			return false;
		if (n > 0)
			text.remove_prefix(static_cast<std::size_t>(n));
	}
	return true;
}

} // namespace

void occupy_standard_files()
{
	// Files open in order, so that each takes the place of the first one that is closed.
	for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
		const int mode = file == STDIN_FILENO ? O_WRONLY : O_RDONLY;

		if (fcntl(file, F_GETFD) < 0 && open("/dev/null", mode) != file)
			throw std::system_error(errno, std::generic_category(),
						"cannot open /dev/null");
	}
}

void print_out(std::string_view text)
{
	if (!write_all(STDOUT_FILENO, text))
		throw std::system_error(errno, std::generic_category(), "cannot write the result");
}

bool print_to_error(std::string_view text) noexcept
{
	return write_all(STDERR_FILENO, text);
}

void print_error(std::string_view sentence) noexcept
{
	std::array<iovec, 3> parts = {{{}, {}, {}}};
	const std::string_view texts[] = {"tarnctl: ", sentence, "\n"};

	// In one call, so that lines of several programs do not mix.
	for (std::size_t i = 0; i < parts.size(); i++)
		parts[i] = {const_cast<char *>(texts[i].data()), texts[i].size()};
	[[maybe_unused]] const ssize_t n = writev(STDERR_FILENO, parts.data(), parts.size());
}

} // namespace tarn
