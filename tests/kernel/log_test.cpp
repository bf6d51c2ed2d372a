// SPDX-License-Identifier: GPL-2.0-only
// What the kernel prints and parses: formats, symbols and numbers.
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
	EXPECT_EQ(formatted("%px %p", 0x1234UL, 0x1234UL), "0000000000001234 0x0000000000001234");
	EXPECT_EQ(formatted("%d|%-5u|%05x|%c|%%|%s", -3, 7U, 0xabU, 'z', "text"),
		  "-3|7    |000ab|z|%|text");
	EXPECT_EQ(formatted("%ld %lu %lld %zu %hhu", -5000000000L, ~0UL, -6000000000LL, 9UL, 300),
		  "-5000000000 18446744073709551615 -6000000000 9 44");
	EXPECT_EQ(formatted("%*d|%-*d|%.*s|%.3s", 4, 1, -4, 2, 2, "abc", "defg"),
		  "   1|2   |ab|def");
	EXPECT_EQ(formatted("%s", static_cast<const char *>(nullptr)), "(null)");
	EXPECT_DEATH(formatted("%5.1f", 1.0), "format: the kernel knows no %5.1f");

	char buf[8] = "xxxxxxx";
	EXPECT_EQ(scnprintf(buf, 4, "%d", 123456), 3) << "what is stored, not what would be";
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
