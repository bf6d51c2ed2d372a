// SPDX-License-Identifier: GPL-2.0-only
// Formats, symbols and numbers, as the kernel prints and parses them.
#include <kernel/kstrtox.h>
#include <kernel/printk.h>

#include "kernel_test.h"

extern "C" int scnprintf(char *buf, size_t size, const char *fmt, ...) KERNEL_PRINTF(3, 4);

using namespace hosted;
using namespace kernel_tests;

namespace
{

// No format attribute: the kernel's extensions are what is tested.
std::string formatted(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	std::string text = format(fmt, args);
	va_end(args);
	return text;
}

using text_test = kernel_test;

TEST_F(text_test, formats_follow_the_kernel)
{
	const unsigned long address = symbol_address("f", 0x10, 0x80, "m");
	EXPECT_EQ(formatted("<%pS> %d", address, 5), "<f+0x10/0x80 [m]> 5");
	EXPECT_EQ(symbol_address("f", 0x30, 0x80, "m"), address + 0x20);
	EXPECT_EQ(symbol_text(symbol_address("f", 0, 0x30)), "f+0x0/0x30") << "another f";
	EXPECT_EQ(symbol_text(symbol_address("bare")), "bare");
	EXPECT_EQ(symbol_text(0x1000), "0x1000");
	EXPECT_EQ(formatted("%px", 0x1234UL), "0000000000001234");
	EXPECT_THAT(formatted("%p", 0x1234UL), testing::MatchesRegex("00000000[0-9a-f]{8}"))
		<< "hashed";
	EXPECT_EQ(formatted("%d|%-5u|%05x|%c|%%|%s", -3, 7U, 0xabU, 'z', "text"),
		  "-3|7    |000ab|z|%|text");
	EXPECT_EQ(formatted("%ld %lu %lld %zu %hhu", -5000000000L, ~0UL, -6000000000LL, 9UL, 300),
		  "-5000000000 18446744073709551615 -6000000000 9 44");
	EXPECT_EQ(formatted("%*d|%-*d|%.*s|%.3s", 4, 1, -4, 2, 2, "abc", "defg"),
		  "   1|2   |ab|def");
	EXPECT_EQ(formatted("%s", static_cast<const char *>(nullptr)), "(null)");
	EXPECT_DEATH(formatted("%5.1f", 1.0), "format: the kernel does not support %5.1f");

	char buf[8] = "xxxxxxx";
	EXPECT_EQ(scnprintf(buf, 4, "%d", 123456), 3) << "the stored length, not the needed one";
	EXPECT_STREQ(buf, "123");
	EXPECT_EQ(buf[4], 'x');
	EXPECT_EQ(scnprintf(buf, 0, "%d", 9), 0);
}

TEST_F(text_test, numbers_are_parsed_strictly)
{
	constexpr int untouched = 99;
	const struct {
		const char *text;
		int base, status, value;
	} cases[] = {
		{"42\n", 0, 0, 42},
		{"-0x1F", 0, 0, -31},
		{"010", 0, 0, 8},
		{"+010", 10, 0, 10},
		{"0xff", 16, 0, 255},
		{"-2147483648", 0, 0, -2147483647 - 1},
		{"2147483648", 0, -ERANGE, untouched},
		{"", 0, -EINVAL, untouched},
		{"+-1", 0, -EINVAL, untouched},
		{"08", 0, -EINVAL, untouched},
		{"0x", 0, -EINVAL, untouched},
	};
	for (const auto &c : cases) {
		int value = untouched;
		EXPECT_EQ(kstrtoint(c.text, c.base, &value), c.status) << c.text;
		EXPECT_EQ(value, c.value) << c.text;
	}
}

} // namespace
