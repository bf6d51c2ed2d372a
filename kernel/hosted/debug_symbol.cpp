// SPDX-License-Identifier: GPL-2.0-only
#include <kernel/debug_symbol.h>

#include <hosted/fault.h>
#include <hosted/slab.h>
#include <kernel/err.h>

void *helper_debug_symbol(int index)
{
	if (hosted::should_fail("android_debug_symbol"))
		return ERR_PTR(-ENOENT);
	switch (index) {
	case ADS_SLAB_CACHES:
		return hosted::slab_caches();
	case ADS_SLAB_MUTEX:
		return &hosted::slab_mutex();
	default:
		return ERR_PTR(-ENOENT);
	}
}
