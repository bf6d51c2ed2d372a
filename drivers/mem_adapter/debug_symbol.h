// SPDX-License-Identifier: GPL-2.0-only
// Kernel functions that modules cannot link to.
#pragma once

#include <kernel/debug_symbol.h>
#include <kernel/err.h>

#include "log.h"

// Looks up the address of a debug symbol. If the kernel lacks it, logs that in the service's name
// and returns null. Context: any; never sleeps.
inline void *look_up_symbol(int index, const char *service)
{
	void *symbol = helper_debug_symbol(index);

	if (!IS_ERR_OR_NULL(symbol))
		return symbol;
	MEM_LOG(KERN_ERR, service, "debug symbol %d not found\n", index);
	return nullptr;
}
