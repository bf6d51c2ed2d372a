// SPDX-License-Identifier: GPL-2.0-only
// Start and stop of the module, and the two vendor hooks that stay attached in between.
#include <kernel/gfp.h>

#include "log.h"
#include "mem_adapter.h"
#include "subsystems.h"
#include "tarn_mapcount.h"
#include "vendor_hook.h"

KERNEL_C_BEGIN
void vh_customize_alloc_gfp(void *data, gfp_t *gfp_mask, unsigned int order);
KERNEL_C_END

namespace
{

// Lets an allocation use CMA pageblocks (__GFP_CMA).
constexpr gfp_t gfp_cma = 0x4000000;
// The kernel treats allocations above this order as costly; CMA pages would not help them.
constexpr unsigned int costly_order = 3;

constinit vendor_hook<android_vh_update_page_mapcount_probe> mapcount_hook;
constinit vendor_hook<android_vh_customize_alloc_gfp_probe> alloc_gfp_hook;

} // namespace

// Lets small movable allocations use CMA pageblocks. Context: any; never sleeps.
void vh_customize_alloc_gfp(void *, gfp_t *gfp_mask, unsigned int order)
{
	if (order > costly_order)
		return;
	if (*gfp_mask & __GFP_MOVABLE)
		*gfp_mask |= gfp_cma;
}

int tarn_mem_adapter_init(void)
{
	lmkd_netlink_load();
	memcheck_load();
	slub_track_load();
	vmalloc_track_load();

	// A kernel may lack any of these hooks.
	int ret =
		mapcount_hook.attach(android_vh_update_page_mapcount(), tarn_updata_page_mapcount);
	if (ret < 0)
		MEM_ERR("tarn_updata_page_mapcount register fail, ret %d.", ret);

	ret = alloc_gfp_hook.attach(android_vh_customize_alloc_gfp(), vh_customize_alloc_gfp);
	if (ret < 0)
		MEM_ERR("vh_customize_alloc_gfp register fail, ret %d.", ret);

	abort_mm_opt_init();
	mm_event_init();
	cma_track_init();
	pin_track_init();
	return 0;
}

// Not the exact reverse of the start: event reporting stops after the abort hooks.
void tarn_mem_adapter_exit(void)
{
	pin_track_exit();
	cma_track_exit();
	abort_mm_opt_exit();
	mm_event_exit();
	alloc_gfp_hook.detach();
	mapcount_hook.detach();
}
