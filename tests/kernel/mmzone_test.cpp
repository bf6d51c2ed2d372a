// SPDX-License-Identifier: GPL-2.0-only
// Zones, their free lists, and CPUs.
#include <hosted/cpumask.h>
#include <hosted/mmzone.h>
#include <kernel/cpumask.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

using mmzone_death = kernel_test;

TEST_F(mmzone_death, a_zone_counts_its_free_blocks)
{
	const zone *zone = helper_node_zone(&contig_page_data, 2);

	set_free_blocks(2, 3, cma_list, 5);
	set_free_blocks(2, 3, 0, 2);
	set_free_blocks(2, 3, cma_list, 1);
	EXPECT_EQ(helper_zone_free_blocks(zone, 3), 3U);
	EXPECT_FALSE(helper_zone_free_list_empty(zone, 3, cma_list));
	set_free_blocks(2, 3, cma_list, 0);
	EXPECT_TRUE(helper_zone_free_list_empty(zone, 3, cma_list));
	EXPECT_FALSE(helper_zone_free_list_empty(zone, 3, 0));
	set_cpu_online(64, true);
	EXPECT_EQ(helper_online_cpus()[0], 0xffU);
	EXPECT_EQ(helper_online_cpus()[1], 1U);
	EXPECT_DEATH(helper_node_zone(&contig_page_data, 5), "zone 5 is out of range");
	EXPECT_DEATH(helper_zone_free_blocks(zone, 11), "order 11 is out of range");
	EXPECT_DEATH(helper_zone_free_list_empty(zone, 0, 6), "list 6 is out of range");
	EXPECT_DEATH(helper_zone_free_pages_diff(zone, KERNEL_NR_CPUS), "CPU 96 is out of range");
}

} // namespace
