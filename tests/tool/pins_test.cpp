// SPDX-License-Identifier: GPL-2.0-only
// The kernel log as a stream of records, and following the pins in it.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <tarnctl/device/device_error.h>
#include <tarnctl/device/pins.h>
#include <tarnctl/terminal/stop_signals.h>

#include "played_log.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;

std::optional<pin> parse(const std::string &message, const char *function = "show_pinner")
{
	return parse_pin(parse_log_record("6,7,1500001,-;" + module_says(function, message)));
}

class follower : public played_log
{
public:
	void pinned(const std::string &task) const
	{
		say(module_says("show_pinner", task + " try_grab_folio [0x1000-0x100f]"));
	}

	bool run(const follow_limits &limits, bool json = false)
	{
		return follow_pins(log, limits,
				   {json,
				    [this](const std::string &line) { lines.push_back(line); },
				    [](const char *) {
				    }});
	}

	std::vector<std::string> lines;
};

constexpr std::chrono::seconds no_time(0);

} // namespace

TEST(kernel_log, says_when_the_kernel_keeps_it_from_programs)
{
	const std::string root = testing::TempDir() + "devkmsg_" + std::to_string(getpid());
	const std::string directory = root + "/proc/sys/kernel";

	std::filesystem::create_directories(directory);
	std::ofstream(directory + "/printk_devkmsg") << "off\n";
	EXPECT_THAT(no_kernel_log_reason(EPERM, root), testing::HasSubstr("printk.devkmsg=off"));
	EXPECT_EQ(no_kernel_log_reason(EACCES, root), "cannot open /dev/kmsg: Permission denied");
	std::ofstream(directory + "/printk_devkmsg") << "ratelimit\n";
	EXPECT_EQ(no_kernel_log_reason(EPERM, root),
		  "cannot open /dev/kmsg: Operation not permitted");
	std::filesystem::remove_all(root);
}

TEST(kernel_log, takes_records_apart)
{
	const log_record record =
		parse_log_record("6,339,5140900,-,caller=T17;a;b\\x0a\n SUBSYSTEM=block\n");

	EXPECT_TRUE(record.by_kernel);
	EXPECT_EQ(record.time.count(), 5140900);
	EXPECT_EQ(record.caller, "T17");
	EXPECT_EQ(record.text, "a;b\\x0a");
	EXPECT_EQ(parse_log_record("6,339,1,c;text\n").caller, "");
	EXPECT_TRUE(parse_log_record("6,339,1,c;text\n").by_kernel);
	for (const char *not_by_kernel :
	     {"", "6,339,1,-", ";text", "x,1,1,-;text", "12,1,1,-;text"})
		EXPECT_FALSE(parse_log_record(not_by_kernel).by_kernel) << not_by_kernel;
}

TEST(kernel_log, is_drained_up_to_the_line_that_was_logged_for_it)
{
	played_log played;
	std::vector<std::string> taken;

	played.say("before");
	played.record(fmt::format("15,2,1,-;tarnctl[{}]: reads the log (2)\n", getpid()));
	played.record(fmt::format("15,2,1,-;tarnctl[{}]: reads the log (1)\n", getpid()));
	played.say("behind");
	played.log.drain([&taken](const log_record &record) { taken.push_back(record.text); });
	ASSERT_EQ(taken.size(), 2U);
	EXPECT_EQ(taken[0], "before");
	EXPECT_EQ(played.log.take(), "behind\n");
}

TEST(pins, are_read_whatever_the_task_is_named)
{
	const auto plain = parse("app folio_add_pin [0x1000-0x100f]");

	ASSERT_TRUE(plain);
	EXPECT_EQ(plain->task, "app");
	EXPECT_EQ(plain->function, "folio_add_pin");
	EXPECT_EQ(plain->first_pfn, 0x1000U);
	EXPECT_EQ(plain->last_pfn, 0x100fU);
	EXPECT_EQ(parse(" f [0x1-0x1]")->task, "");
	EXPECT_EQ(parse("Signal Catch f [0x1-0x1]")->task, "Signal Catch");
	EXPECT_EQ(parse("a g [0x5-0x6] f [0x1-0x1]")->task, "a g [0x5-0x6]");
	EXPECT_EQ(parse("a\\x0a\\xff\\x5cx41 f [0x1-0x1]")->task, "a\n\xff\\x41");
	EXPECT_EQ(parse("a\\xq1 f [0x1-0x1]")->task, "a\\xq1");
}

TEST(pins, are_nothing_else)
{
	for (const char *message :
	     {"", "app f", " [0x1-0x1]", "f [0x1-0x1]", "app f [0x1-0x1", "app f [0x1-0x1] ",
	      "app f [0x1]", "app f [1-1]", "app f [0x2-0x1]", "app f [0x1-0x11112222333344445]"})
		EXPECT_EQ(parse(message), std::nullopt) << message;
	EXPECT_EQ(parse("app f [0x1-0x1]", "show_pinne"), std::nullopt);
	EXPECT_EQ(parse_pin(parse_log_record("12,7,1,-;" +
					     module_says("show_pinner", "app f [0x1-0x1]"))),
		  std::nullopt);
}

TEST(pins, are_followed_until_there_are_enough)
{
	follower follower;

	follower.pinned("my\\x1bapp");
	follower.say("something else");
	follower.pinned("\\xff");
	follower.pinned("third");
	EXPECT_TRUE(follower.run({.count = 1, .time = std::nullopt}));
	EXPECT_TRUE(follower.run({.count = 1, .time = std::nullopt}, true));
	EXPECT_THAT(
		follower.lines,
		ElementsAre(
			"[    1.500001] my?app try_grab_folio 0x1000-0x100f 16 pages",
			R"({"time_us":1500001,"task":")"
			"\xef\xbf\xbd"
			R"(","function":"try_grab_folio","first_pfn":4096,"last_pfn":4111,"pages":16})"));
}

TEST(pins, are_not_waited_for_without_module_or_probes)
{
	const std::string root = testing::TempDir() + "pins_" + std::to_string(getpid());
	const std::string probes = root + "/sys/kernel/debug/kprobes";
	const auto list = [&probes](const char *text) {
		std::ofstream(probes + "/list") << text;
	};

	EXPECT_THROW(require_pin_tracking(root), device_error);
	std::filesystem::create_directories(root + "/sys/module/tarn_mem_adapter");
	EXPECT_NO_THROW(require_pin_tracking(root)) << "without debugfs";
	std::filesystem::create_directories(probes);
	list("ffff800080 k do_exit+0x0 [FTRACE]\n");
	EXPECT_THROW(require_pin_tracking(root), device_error);
	list("ffff800080 k do_exit+0x0\nffff800081 k folio_add_pin+0x0 [FTRACE]\n");
	EXPECT_NO_THROW(require_pin_tracking(root));
	std::filesystem::remove_all(root);
}

TEST(pins, that_are_logged_at_the_end_are_not_missed)
{
	follower follower;

	follower.pinned("a");
	follower.pinned("b");
	EXPECT_FALSE(follower.run({.count = 3, .time = no_time}));
	EXPECT_EQ(follower.lines.size(), 2U);
	EXPECT_TRUE(follower.run({.count = std::nullopt, .time = no_time}));
	follower.pinned("a");
	follower.pinned("b");
	EXPECT_TRUE(follower.run({.count = 1, .time = no_time}));
	EXPECT_EQ(follower.lines.size(), 3U);

	const stop_signals guard;

	follower.pinned("c");
	std::raise(SIGTERM);
	EXPECT_TRUE(follower.run({.count = std::nullopt, .time = std::nullopt}));
	EXPECT_EQ(follower.lines.size(), 4U);
}

TEST(pins, that_the_kernel_holds_back_are_asked_for)
{
	follower follower;
	std::thread kernel([&follower] {
		constexpr int patience_ms = 20000;
		pollfd file = {follower.kernel.get(), POLLIN, 0};

		// A line of anyone's lets the one before it out.
		EXPECT_EQ(poll(&file, 1, patience_ms), 1);
		follower.pinned("late");
	});

	EXPECT_TRUE(follower.run({.count = 1, .time = std::chrono::seconds(20)}));
	kernel.join();
}

} // namespace tarn
