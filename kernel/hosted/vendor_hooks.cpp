// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/vendor_hooks.h>

constinit tracepoint __tracepoint_android_vh_update_page_mapcount{"android_vh_update_page_mapcount",
								  1};
constinit tracepoint __tracepoint_android_vh_customize_alloc_gfp{"android_vh_customize_alloc_gfp",
								 1};
// A slab probe hands the event to a recorder, which takes the stack trace.
constinit tracepoint __tracepoint_android_vh_slab_alloc_node{"android_vh_slab_alloc_node", 2};
constinit tracepoint __tracepoint_android_vh_slab_free{"android_vh_slab_free", 2};
constinit tracepoint __tracepoint_android_vh_save_vmalloc_stack{"android_vh_save_vmalloc_stack", 1};
constinit tracepoint __tracepoint_android_vh_show_stack_hash{"android_vh_show_stack_hash", 1};
constinit tracepoint __tracepoint_android_vh_vmscan_kswapd_done{"android_vh_vmscan_kswapd_done", 1};
constinit tracepoint __tracepoint_android_vh_alloc_pages_slowpath{"android_vh_alloc_pages_slowpath",
								  1};
constinit tracepoint __tracepoint_android_vh_mm_direct_reclaim_enter{
	"android_vh_mm_direct_reclaim_enter", 1};
constinit tracepoint __tracepoint_android_vh_madvise_cold_or_pageout_abort{
	"android_vh_madvise_cold_or_pageout_abort", 1};
constinit tracepoint __tracepoint_android_vh_compact_finished{"android_vh_compact_finished", 1};

#define DEFINE_HELPER(hook) constinit tracepoint *const helper_##hook = &__tracepoint_##hook;
KERNEL_VENDOR_HOOKS(DEFINE_HELPER)
