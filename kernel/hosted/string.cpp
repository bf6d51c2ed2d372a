// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <hosted/engine/log.h>
#include <kernel/string.h>

int scnprintf(char *buf, size_t size, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	const std::string text = hosted::format(fmt, args);
	va_end(args);
	if (size == 0)
		return 0;
	const std::size_t stored = std::min(text.size(), size - 1);
	std::copy_n(text.data(), stored, buf);
	buf[stored] = '\0';
	return static_cast<int>(stored);
}
