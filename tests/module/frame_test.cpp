// SPDX-License-Identifier: GPL-2.0-only
// The parameters and exports of the module, its two permanent hooks, and the page counts.
#include <span>

#include <hosted/mm.h>
#include <hosted/mmzone.h>
#include <hosted/vendor_hooks.h>
#include <hosted/vmstat.h>
#include <kernel/gfp.h>

#include "fixture.h"

namespace
{

using namespace module_tests;

class frame : public module_test
{
protected:
	unsigned long count(const char *name)
	{
		return exported<unsigned long()>(name)();
	}
};

TEST_F(frame, has_its_parameters_and_exports)
{
	EXPECT_EQ(module.image().params.size(), 19u);
	for (const char *state : {"netlink_init", "memtrack_init_state"})
		EXPECT_EQ(set_parameter(state, "1"), -EACCES);
	EXPECT_EQ(module.image().exports.size(), 34u);
	for (const hosted::module_export &e : module.image().exports)
		EXPECT_EQ(e.gpl_only, e.name == std::string("tarn_memory_event_report")) << e.name;
}

TEST_F(frame, warns_if_the_map_count_of_an_unreferenced_page_changes)
{
	const std::span compound = hosted::make_pages(3);
	hosted::make_compound(compound);
	compound[1].refcount = 1; // a tail page's own count is not used
	compound[2].refcount = 0;
	for (const int references : {1, 0}) {
		compound[0].refcount = references;
		for (page &p : compound) {
			int mapping = 7;
			bool success = false;
			trace_android_vh_update_page_mapcount(&p, true, true, &mapping, &success);
			EXPECT_TRUE(mapping == 7 && !success);
		}
		EXPECT_EQ(
			log_lines(log_warning, " at drivers/mem_adapter/tarn_mapcount.cpp:").size(),
			references ? 0u : 3u);
	}
}

TEST_F(frame, small_movable_allocations_may_use_cma)
{
	const auto customised = [](gfp_t mask, unsigned order) {
		trace_android_vh_customize_alloc_gfp(&mask, order);
		return mask;
	};
	EXPECT_EQ(customised(GFP_KERNEL | 0x8, 0), GFP_KERNEL | 0x4000008);
	EXPECT_EQ(customised(0x8, 3), 0x4000008u);
	EXPECT_EQ(customised(0x8, 4), 0x8u);
	EXPECT_EQ(customised(0xfbfffff7, 0), 0xfbfffff7u);
}

TEST_F(frame, the_reserve_is_the_sum_over_the_zones)
{
	// A zone's entries for itself and higher zones count, at least 0 and at most what it
	// manages.
	hosted::set_zone(0, {{-9, -1, -5, -1, -7}, 30, 0, 1000});
	hosted::set_zone(1, {{9999, 10, 700, 20, 30}, 40, 5, 1000});
	hosted::set_zone(2, {{0, 0, 50, 0, 0}, 100, 1, 120});
	hosted::set_zone(3, {{0, 0, 0, 60, 0}, 8, 0, 0});
	hosted::set_zone(4, {{5, 5, 5, 5, 200}, 1, 0, 201});
	EXPECT_EQ(count("tarn_get_totalreserve_pages"), 30u + 745 + 120 + 0 + 201);
	EXPECT_EQ(helper_node_totalreserve(&contig_page_data), 1096u);

	for (const auto &[pages, available] : {std::pair{1097, 1u}, {1096, 1096u}, {-3, 0u}}) {
		hosted::set_zone_stat(KERNEL_NR_FREE_PAGES, pages);
		EXPECT_EQ(count("tarn_get_free_page"), available);
	}
	EXPECT_EQ(log_lines(log_info, "free_pages").front(),
		  "[tarn_get_free_page] free_pages:1, totalreserve_pages:1096");
}

TEST_F(frame, counts_file_and_anon_pages)
{
	hosted::set_node_stat(KERNEL_NR_FILE_PAGES, 100);
	hosted::set_node_stat(KERNEL_NR_SWAPCACHE, 10);
	hosted::set_node_stat(KERNEL_NR_SHMEM, 50);
	hosted::set_node_stat(KERNEL_NR_UNEVICTABLE, 45);
	EXPECT_EQ(count("tarn_get_file_page"), -5UL);
	hosted::set_node_stat(KERNEL_NR_SHMEM, -50);
	EXPECT_EQ(count("tarn_get_file_page"), 45u);
	hosted::set_node_stat(KERNEL_NR_INACTIVE_ANON, 11);
	hosted::set_node_stat(KERNEL_NR_ACTIVE_ANON, -5);
	EXPECT_EQ(count("tarn_get_anon_page"), 11u);
}

TEST_F(frame, the_zram_watermark_follows_the_size_of_swap)
{
	hosted::set_totalram(1048576);
	for (const auto &[size, free, going_away, used, watermark] :
	     {std::tuple{1572864ul, 1000ul, 0ul, 1571864ul, 314572ul},
	      {1048576, 1048576, 0, 0, 786432},
	      {1048577, 5, 0, 1048572, 209715},
	      // Size is used plus free pages.
	      {1000, 400, 100, 600, 675}}) {
		hosted::set_swap(size, free, going_away);
		EXPECT_EQ(count("tarn_get_zram_page"), used) << size;
		EXPECT_EQ(count("tarn_cpa_get_zram_watermark_page"), watermark) << size;
	}
	const std::string ratio = "[tarn_cpa_get_zram_watermark_page] cpa_zram_ratio: ";
	EXPECT_THAT(log_lines(log_info, ratio),
		    testing::ElementsAre(ratio + "20", ratio + "75", ratio + "20", ratio + "75"));

	const hosted::fault_scope lacking("swapinfo", 1, hosted::fault_scope::mode::from_then_on);
	EXPECT_EQ(count("tarn_get_zram_page"), 0U);
	EXPECT_EQ(count("tarn_cpa_get_zram_watermark_page"), 0U) << "though pages are free";
}

} // namespace
