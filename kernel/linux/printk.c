// SPDX-License-Identifier: GPL-2.0-only
#include <linux/bug.h>
#include <linux/printk.h>

#include <kernel/printk.h>

/* The trap that the kernel attributes the warning to is this one, so the line above it names the
 * caller's. */
void helper_warn(const char *file, int line)
{
	WARN(true, "%s:%d\n", file, line);
}
