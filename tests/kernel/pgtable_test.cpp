// SPDX-License-Identifier: GPL-2.0-only
// The kernel's page tables and device mappings, and the misuse that the judge stops.
#include <hosted/dma.h>
#include <hosted/gfp.h>
#include <hosted/pgtable.h>
#include <hosted/scatterlist.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

constexpr u64 page_bits = 0x0068000000000703;
constexpr u64 block_bits = page_bits & ~2ULL;
constexpr u64 base = lowest_kernel_address;
constexpr u64 phys = 64 * entry_span(1);

class page_tables : public kernel_test
{
protected:
	page_tables()
	{
		boot_map(base, 1, phys | block_bits);
		boot_map(base + entry_span(1), 2, phys | block_bits);
	}
	~page_tables() override
	{
		reset_page_tables(); // frees the pages that a test leaves
	}
	static u64 *new_table()
	{
		return reinterpret_cast<u64 *>(helper_get_zeroed_page(GFP_KERNEL));
	}
	static u64 to(const u64 *table)
	{
		return helper_virt_to_phys(table) | 3;
	}
	// The pieces of a block of 1 GiB.
	static void fill(u64 *table, u64 from = phys)
	{
		for (u64 i = 0; i < 512; i++)
			helper_set_pmd(&table[i], (from + i * entry_span(2)) | block_bits);
	}

	mm_struct *mm = init_mm();
	u64 *root = helper_kernel_root_table(mm);
};
using page_tables_death = page_tables;

TEST_F(page_tables, a_table_takes_a_blocks_place)
{
	const auto before = translate(base + 0x12345678);
	u64 *table = new_table();
	fill(table);
	helper_page_table_lock(mm);
	EXPECT_EQ(self().preempt_count, 1);
	EXPECT_FALSE(self().irqs_off);
	helper_set_pud(&root[0], to(table));
	helper_flush_tlb_all();
	helper_set_pmd(&table[1], 0);
	helper_page_table_unlock(mm);

	EXPECT_EQ(before, (translation{phys + 0x12345678, block_bits & ~3ULL, 1}));
	EXPECT_EQ(translate(base + 0x12345678),
		  (translation{phys + 0x12345678, block_bits & ~3ULL, 2}));
	EXPECT_FALSE(translate(base + entry_span(2)));
	EXPECT_FALSE(translate(base + 2 * entry_span(1)));
	EXPECT_FALSE(translate(0));
	EXPECT_EQ(table_activity(), (table_counts{513, 1})) << "no barrier behind an empty entry";
}

TEST_F(page_tables_death, misuse_of_entries_stops)
{
	EXPECT_DEATH(helper_set_pud(&root[1], 0), "without the lock");
	u64 *table = new_table();
	helper_page_table_lock(mm);
	EXPECT_DEATH(helper_get_zeroed_page(GFP_KERNEL), "sleep in atomic context");
	EXPECT_DEATH(helper_set_pmd(&root[1], 0), "belongs to a table of level 1");
	EXPECT_DEATH(helper_set_pud(&root[0], 0x123000 | 3), "was not allocated");
	EXPECT_DEATH(helper_set_pud(&root[2], to(table)), "without a barrier");
	helper_dsb_ishst();
	EXPECT_DEATH(helper_set_pud(&root[0], to(table)), "before it maps the same");
	EXPECT_DEATH(helper_set_pud(&root[0], (phys + entry_span(1)) | block_bits), "is moved");
	EXPECT_DEATH(helper_set_pud(&root[1], 0), "cut off");
	EXPECT_DEATH(helper_set_pud(&root[1], to(table)), "takes another's place");
	u64 plain = 0;
	EXPECT_DEATH(helper_set_pte(&plain, 0), "no entry of a table");
	EXPECT_DEATH(
		{
			helper_set_pud(&root[2], block_bits);
			helper_set_pud(&root[2], block_bits | 0x80);
		},
		"twice in one step");
	EXPECT_DEATH(
		{
			helper_set_pud(&root[2], to(table));
			helper_set_pud(&root[3], to(table));
		},
		"installed already");
	EXPECT_DEATH(
		{
			helper_set_pte(&table[0], 0);
			helper_set_pud(&root[2], to(table));
		},
		"entries of another level");
	EXPECT_DEATH(
		{
			helper_set_pmd(&table[0], 0); // no entry that the walk may use: no barrier
			helper_set_pud(&root[2], to(table));
		},
		"without a barrier");
	fill(table);
	EXPECT_DEATH(
		{
			helper_set_pud(&root[0], to(table));
			helper_set_pmd(&table[0], phys | block_bits);
		},
		"before the flush");
	EXPECT_DEATH(
		{
			helper_set_pud(&root[0], to(table));
			helper_page_table_unlock(mm);
		},
		"before the flush");
	helper_page_table_unlock(mm);
}

TEST_F(page_tables_death, misuse_of_pages_stops)
{
	u64 *table = new_table();
	const auto at = reinterpret_cast<unsigned long>(table);
	EXPECT_THAT(leftovers(), testing::ElementsAre(testing::StartsWith("page at 0x88")));
	EXPECT_EQ(helper_phys_to_virt(helper_virt_to_phys(table + 3)), table + 3);
	EXPECT_DEATH(free_pages(at + 8, 0), "not a page");
	EXPECT_DEATH(free_pages(at, 1), "not a page");
	EXPECT_DEATH(free_pages(reinterpret_cast<unsigned long>(root), 0), "in the page tables");
	table[5] = 1;
	free_pages(at, 0);
	EXPECT_DEATH(free_pages(at, 0), "double free");
	EXPECT_DEATH(helper_phys_to_virt(helper_virt_to_phys(table)), "no page in use");
	EXPECT_EQ(new_table(), table);
	EXPECT_EQ(table[5], 0U) << "zeroed again";
	const fault_scope fault("__get_free_pages");
	EXPECT_EQ(new_table(), nullptr);
}

using dma_death = kernel_test;

TEST_F(dma_death, misuse_stops)
{
	const std::span pages = make_pages(2);
	scatter_table table({{pages.data(), 8192}});
	device dev;
	EXPECT_DEATH((void)dma_map_sgtable(&dev, table.get(), DMA_NONE, 0), "without a direction");
	EXPECT_DEATH(dma_unmap_sg_attrs(&dev, table.get()->sgl, 1, DMA_TO_DEVICE, 0), "no mapping");
	EXPECT_EQ(dma_map_sgtable(&dev, table.get(), DMA_TO_DEVICE, 0), 0);
	EXPECT_EQ(table.get()->nents, 1U);
	EXPECT_EQ(table.get()->sgl->dma_length, 8192U);
	EXPECT_DEATH(reset_dma(), "left with a mapping");
	EXPECT_DEATH(dma_unmap_sg_attrs(&dev, table.get()->sgl, 2, DMA_TO_DEVICE, 0), "no mapping");
	dma_unmap_sg_attrs(&dev, table.get()->sgl, 1, DMA_TO_DEVICE, 0);
}

} // namespace
