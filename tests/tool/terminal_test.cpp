// SPDX-License-Identifier: GPL-2.0-only
// The progress bar on terminals of all kinds.
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <tarnctl/terminal/progress_bar.h>
#include <unistd.h>

namespace tarn
{

namespace
{

using testing::HasSubstr;
using testing::IsEmpty;

// What a bar that is half done writes to a terminal.
std::string shown_on(const char *terminal, unsigned short columns)
{
	const winsize size = {24, columns, 0, 0};
	int master = -1;
	const pid_t child = forkpty(&master, nullptr, nullptr, &size);
	std::string text;
	char buffer[256];

	if (child == 0) {
		setenv("TERM", terminal, 1); // NOLINT(concurrency-mt-unsafe)
		unsetenv("COLUMNS");	     // NOLINT(concurrency-mt-unsafe)
		{
			progress_bar bar("reading");

			std::this_thread::sleep_for(std::chrono::milliseconds(350));
			bar.update(1, 2);
		}
		_exit(0);
	}
	while (true) {
		const ssize_t n = read(master, buffer, sizeof(buffer));

		if (n <= 0)
			break;
		text.append(buffer, static_cast<std::size_t>(n));
	}
	close(master);
	waitpid(child, nullptr, 0);
	return text;
}

} // namespace

TEST(progress, fits_into_the_terminal)
{
	EXPECT_EQ(progress_line("reading", 1, 2, 80),
		  "reading [####################                    ]  50 %");
	EXPECT_EQ(progress_line("reading", 1, 2, 24), "reading [###    ]  50 %");
	EXPECT_EQ(progress_line("reading", 1, 2, 21), " 50 %");
	EXPECT_EQ(progress_line("reading", 1, 2, 6), " 50 %");
	EXPECT_EQ(progress_line("reading", 1, 2, 5), "");
	EXPECT_EQ(progress_line("reading", 1, 2, 0), "");
	EXPECT_EQ(progress_line("reading", 3, 2, 22), "reading [#####] 100 %");
	for (std::size_t columns = 1; columns < 200; columns++)
		EXPECT_LT(progress_line("reading", UINT64_MAX - 1, UINT64_MAX, columns).size(),
			  columns);
}

TEST(progress, is_shown_where_it_can_be_redrawn)
{
	EXPECT_THAT(shown_on("xterm", 80), HasSubstr("reading [####################   "));
	EXPECT_THAT(shown_on("xterm", 20), HasSubstr("\r\033[K 50 %\r\033[K"));
	EXPECT_THAT(shown_on("dumb", 80), IsEmpty());
	EXPECT_THAT(shown_on("", 80), IsEmpty());
}

} // namespace tarn
