// SPDX-License-Identifier: GPL-2.0-only
#include <linux/gfp.h>

#include <kernel/gfp.h>

unsigned long helper_get_zeroed_page(gfp_t gfp)
{
	return get_zeroed_page(gfp);
}
