// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/seq_file.h>

#include <cstdarg>

#include <hosted/engine/log.h>

void seq_putc(seq_file *m, char c)
{
	m->text += c;
}

void seq_printf(seq_file *m, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	m->text += hosted::format(fmt, args);
	va_end(args);
}
