// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <kernel/debug_symbol.h>
#include <kernel/err.h>

#include "log.h"

// The address of a debug symbol; null, with a log line in the service's name, where the kernel does
// not have it. Looked up at each call. Context: any.
inline void *look_up_symbol(int index, const char *service)
{
	void *symbol = helper_debug_symbol(index);

	if (!IS_ERR_OR_NULL(symbol))
		return symbol;
	MEM_LOG(KERN_ERR, service, "debug symbol %d not found\n", index);
	return nullptr;
}
