// SPDX-License-Identifier: GPL-2.0-only
// Numbers, sizes and times as people write them, and guesses at mistyped names.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarnctl/text/near_match.h>
#include <tarnctl/text/quantity.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST(scan, takes_numbers_that_fit_and_leaves_the_rest)
{
	std::string_view text = "0010x-129";
	std::int8_t small = 7;
	unsigned int number = 0;

	EXPECT_TRUE(take_number(text, number));
	EXPECT_EQ(number, 10U);
	EXPECT_FALSE(take_number(text, number));
	EXPECT_TRUE(take_literal(text, "x"));
	EXPECT_FALSE(take_number(text, number)) << "an unsigned number has no sign";
	EXPECT_FALSE(take_number(text, small)) << "too small for its type";
	EXPECT_EQ(text, "-129");
	EXPECT_EQ(small, 7);
	EXPECT_EQ(parse_number<std::int64_t>("-129"), -129);
	for (const char *bad : {"", " 1", "1 ", "+1", "1x", "256"})
		EXPECT_EQ(parse_number<std::uint8_t>(bad), std::nullopt) << bad;
}

TEST(quantity, has_units_and_limits)
{
	const auto ns = [](const char *text) {
		const auto time = parse_time(text);

		return time ? time->count() : -1;
	};

	EXPECT_EQ(parse_size("0"), 0U);
	EXPECT_EQ(parse_size("4096B"), 4096U);
	EXPECT_EQ(parse_size("3k"), 3072U);
	EXPECT_EQ(parse_size("2MiB"), 1U << 21);
	EXPECT_EQ(parse_size("1gb"), 1U << 30);
	EXPECT_EQ(parse_size("16777215T"), 16777215ULL << 40);
	for (const char *bad :
	     {"", "k", "-1", "1.5M", "1 M", "1P", "1KBs", "16777216T", "18446744073709551616"})
		EXPECT_EQ(parse_size(bad), std::nullopt) << bad;

	EXPECT_EQ(ns("2"), 2'000'000'000);
	EXPECT_EQ(ns("0.0009765625s"), 976562);
	EXPECT_EQ(ns("1.5ms"), 1'500'000);
	EXPECT_EQ(ns("300us"), 300'000);
	EXPECT_EQ(ns("7.9ns"), 7);
	EXPECT_EQ(ns("9223372035.999999999"), 9223372035'999999999);
	for (const char *bad : {"", ".5", "1.", "-1", "1 s", "1h", "1.5.5", "9223372036"})
		EXPECT_EQ(ns(bad), -1) << bad;
}

TEST(near_matches, are_close_or_begin_so)
{
	const std::vector<std::string> names = {"filp", "dentry", "kmalloc-64", "kmalloc-128", "a"};

	EXPECT_THAT(near_matches("flip", names), ElementsAre("filp"));
	EXPECT_THAT(near_matches("fil", names), ElementsAre("filp"));
	EXPECT_THAT(near_matches("file", names), ElementsAre("filp"));
	EXPECT_THAT(near_matches("dentrys", names), ElementsAre("dentry"));
	EXPECT_THAT(near_matches("kmaloc-64", names), ElementsAre("kmalloc-64"));
	EXPECT_THAT(near_matches("kmalloc", names), ElementsAre("kmalloc-64", "kmalloc-128"));
	EXPECT_THAT(near_matches("", names), IsEmpty());
	EXPECT_THAT(near_matches("b", names), IsEmpty());
}

} // namespace tarn
