// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>
#include <linux/swap.h>

#include <kernel/swap.h>

#include "symbols.h"

bool helper_swapinfo(unsigned long *total, unsigned long *free)
{
	struct sysinfo info = {};

	if (!kernel_symbols.si_swapinfo)
		return false;
	kernel_symbols.si_swapinfo(&info);
	*total = info.totalswap;
	*free = info.freeswap;
	return true;
}
