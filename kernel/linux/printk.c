// SPDX-License-Identifier: GPL-2.0-only
#include <linux/bug.h>
#include <linux/printk.h>

#include <kernel/printk.h>

/* The kernel attributes a warning to the source line of the macro, which only C code can use. So
 * this code counts as the unit's. Keep it at the end of the file. */
#line 1 "drivers/mem_adapter/tarn_mapcount.cpp"
void helper_warn_tarn_mapcount(void)
{
	WARN_ON(true);
}
