// SPDX-License-Identifier: GPL-2.0-only
// What the command line makes of bad arguments, of output that cannot be written and of a machine
// without the module.
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tarnctl_program.h"

namespace tarn
{

namespace
{

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

void expect_refused(const std::string &arguments, const std::string &sentence)
{
	const outcome result = tarnctl(arguments);

	EXPECT_EQ(result.status, 2) << arguments;
	EXPECT_EQ(result.out, "") << arguments;
	EXPECT_THAT(result.err, StartsWith("tarnctl: ")) << arguments;
	EXPECT_THAT(result.err, HasSubstr(sentence)) << arguments;
	EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
}

} // namespace

TEST(command_line, refuses_numbers_out_of_range_before_it_does_anything)
{
	// The device is looked at only when the arguments are right.
	const std::string device = " --device /dev/null";

	for (const char *arguments :
	     {"kill -5 --yes", "kill 18446744073709551616 --yes", "kill 1.5 --yes", "kill 1K --yes",
	      "kill 0x10 --yes", "kill '' --yes", "watermark --zone -1",
	      "watermark --zone 2147483648", "watermark --order 4294967296",
	      "watermark --order -1"})
		expect_refused(arguments + device, "expected a whole number from 0 to ");
	for (const char *size :
	     {"-1", "99999999999999999999", "16777216T", "1.5M", "M", "1P", "1 M"})
		expect_refused("reclaim '" + std::string(size) + "'" + device,
			       "size: expected a size");
	expect_refused("watch --count -1", "--count: expected a whole number from 1 to 4294967295");
	expect_refused("pins --seconds 18446744073709551617", "--seconds: expected");
	for (const char *right : {"kill 18446744073709551615 --yes --by swapped", "reclaim 2MiB",
				  "reclaim 16777215T", "watermark --zone 2147483647 --order 0"})
		expect_refused(right + device, "/dev/null is not a memcheck device");
}

TEST(command_line, helps_with_what_was_mistyped)
{
	expect_refused("", "no command given; the commands are hunt, caches, watch, ");
	expect_refused("foo", "unknown command \"foo\"; the commands are hunt, caches, watch, ");
	expect_refused("tresholds", "unknown command \"tresholds\"; did you mean thresholds?");
	expect_refused("thresholds gett", "unknown command \"gett\"; did you mean get or set?");
	expect_refused("--what", "unknown option \"--what\"; see \"tarnctl --help\"");
	expect_refused("hunt --cach filp", "unknown option \"--cach\"; did you mean --cache?");
	expect_refused("kill 1 2", "unexpected argument \"2\"; see \"tarnctl kill --help\"");
	expect_refused("kill", "pages is required; see \"tarnctl kill --help\"");
	expect_refused("hunt --trace a --cache", "--cache needs exactly one value");
	expect_refused("hunt --trace a --cache b --cache c", "--cache needs exactly one value");
	expect_refused("drop sl\033b", "what: expected slab, pages or all, got \"sl?b\"");
	expect_refused("kill 1", "--yes");
}

TEST(command_line, prints_its_version)
{
	const outcome result = tarnctl("--version");

	EXPECT_EQ(result.status, 0);
	EXPECT_THAT(result.out, testing::MatchesRegex("tarnctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
	EXPECT_EQ(result.err, "");
}

TEST(command_line, fails_in_order_when_its_output_cannot_be_written)
{
	const std::string hunt =
		"hunt --trace " EXAMPLES_DIR "/fd-leak.ftrace.xz --cache filp --json --log";

	for (const std::string &arguments :
	     {std::string("--help"), std::string("--version"), hunt}) {
		for (const char *redirections : {">/dev/full", ">&-", "<&- >&-"}) {
			const outcome result = tarnctl(arguments, redirections);

			EXPECT_EQ(result.status, 2) << arguments << redirections;
			EXPECT_THAT(result.err, HasSubstr("tarnctl: cannot write the result: "));
		}
	}
	for (const char *arguments : {"foo", "hunt --trace /nowhere", "pages --device /dev/null"}) {
		for (const char *redirections : {"2>/dev/full", "2>&-", ">&- 2>&-"}) {
			EXPECT_EQ(tarnctl(arguments, redirections).status, 2)
				<< arguments << redirections;
		}
	}
	EXPECT_EQ(tarnctl(hunt, ">/dev/null 2>/dev/full").status, 2) << "the log was asked for";
}

TEST(command_line, says_that_the_module_is_not_there)
{
	if (std::filesystem::exists("/sys/module/tarn_mem_adapter"))
		GTEST_SKIP() << "it is loaded";
	for (const char *arguments :
	     {"pins --seconds 1", "pins --all --count 1", "watch --seconds 1", "cma",
	      "cma linux,cma", "thresholds", "pages --json"})
		expect_refused(arguments, "loaded");
}

TEST(command_line, needs_no_file_beside_the_program)
{
	const std::string directory =
		testing::TempDir() + "copied_tarnctl_" + std::to_string(getpid());

	std::filesystem::create_directory(directory);
	std::filesystem::copy_file(tarnctl_path(), directory + "/tarnctl");
	const outcome result =
		tarnctl("hunt --trace " EXAMPLES_DIR "/fd-leak.ftrace.xz --cache filp", "",
			directory + "/tarnctl");

	std::filesystem::remove_all(directory);
	EXPECT_EQ(result.status, 0) << result.err;
	EXPECT_THAT(result.out, Not(IsEmpty()));
}

} // namespace tarn
