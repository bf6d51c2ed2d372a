// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory: one page structure for each page, one owner at a time, none after the free.
#include <array>
#include <stdexcept>

#include <hosted/cma.h>
#include <hosted/dma.h>
#include <hosted/gfp.h>
#include <hosted/pgtable.h>
#include <hosted/pins.h>
#include <hosted/scatterlist.h>
#include <hosted/slab.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

class pages : public kernel_test
{
protected:
	static unsigned long page_of_module()
	{
		return helper_get_zeroed_page(GFP_KERNEL);
	}
	static void *as_pointer(unsigned long address)
	{
		return reinterpret_cast<void *>(address);
	}
	static page &page_under(const void *address)
	{
		return *virt_to_page(address);
	}

	kmem_cache *cache = add_cache("dentry", 192);
	void *object = allocate(*cache, GFP_KERNEL);
};
using pages_death = pages;

TEST_F(pages, all_parts_of_the_kernel_speak_of_the_same_bytes)
{
	cma &area = add_cma_area("area", 512, 512);
	page *contiguous = cma_alloc(area, 2);
	const unsigned long module_page = page_of_module();
	const std::array<const void *, 3> used = {object, as_pointer(module_page),
						  page_address(contiguous[1])};
	for (const void *address : used) {
		const u64 phys = helper_virt_to_phys(address);
		page &p = page_under(address);
		EXPECT_EQ(helper_phys_to_virt(phys), address);
		EXPECT_EQ(helper_page_to_pfn(&p), phys >> 12);
		EXPECT_EQ(helper_pfn_to_page(phys >> 12), &p);
		EXPECT_EQ(page_address(p) + phys % 4096, address);
	}
	EXPECT_EQ(helper_virt_to_phys(page_address(contiguous[1])), 513U << 12);

	scatter_table table({{contiguous, 8192, 16}});
	device dev;
	EXPECT_EQ(dma_map_sgtable(&dev, table.get(), DMA_TO_DEVICE, 0), 0);
	EXPECT_EQ(table.get()->sgl->dma_address, (512U << 12) + 16);
	dma_unmap_sg_attrs(&dev, table.get()->sgl, 1, DMA_TO_DEVICE, 0);
	free_pages(module_page, 0);
}

TEST_F(pages_death, a_page_is_not_used_after_it_was_freed)
{
	const unsigned long address = page_of_module();
	page &p = page_under(as_pointer(address));
	helper_page_set_flag(&p, 27);
	free_pages(address, 0);
	EXPECT_DEATH(free_pages(address, 0), "double free of a page");
	EXPECT_DEATH(helper_page_set_flag(&p, 27),
		     "change of a flag of page 0x88.*, which is free");
	EXPECT_DEATH(helper_page_clear_flag(&p, 27), "change of a flag");
	EXPECT_DEATH(helper_page_folio_pages(&p), "folio size of page");
	EXPECT_DEATH(folio_add_pin(p), "pin of page");
	scatter_table table({{&make_pages(1).front(), 4096}, {&p, 4096}});
	device dev;
	EXPECT_DEATH((void)dma_map_sgtable(&dev, table.get(), DMA_TO_DEVICE, 0), "device mapping");

	cma &area = add_cma_area("area", 512, 512);
	page *contiguous = cma_alloc(area, 2);
	cma_release(area, &contiguous[1], 1);
	EXPECT_DEATH(cma_release(area, contiguous, 2), "page 0x201, which is not allocated");

	const auto write_to = [](const void *freed) {
		*static_cast<volatile unsigned char *>(const_cast<void *>(freed)) = 1;
	};
	// the address sanitizer cannot report in a process that has unloaded a module
	GTEST_FLAG_SET(death_test_style, "threadsafe");
	EXPECT_DEATH(
		{
			write_to(as_pointer(address));
			page_of_module();
		},
		"use.after.(free|poison)");
	EXPECT_DEATH(
		{
			write_to(page_address(contiguous[1]));
			cma_alloc(area, 1);
		},
		"use.after.(free|poison)");
	EXPECT_DEATH(
		{
			write_to(as_pointer(address));
			reset_physmem();
		},
		"use.after.(free|poison)")
		<< "nobody takes the page again";
}

TEST_F(pages_death, a_page_has_one_owner)
{
	const unsigned long slab_block = helper_page_to_pfn(virt_to_page(object)) / 512 * 512;
	EXPECT_DEATH(add_cma_area("area", slab_block, 512),
		     "page 0x88.* belongs to .* and is given to a CMA area");
	EXPECT_THROW(add_cma_area("area", slab_block + 512, 512), std::invalid_argument);
	add_cma_area("area", 512, 512);
	EXPECT_DEATH(add_cma_area("other", 0, 1024), "page 0x200 belongs to a CMA area");

	mm_struct *mm = init_mm();
	u64 *root = helper_kernel_root_table(mm);
	page *contiguous = &page_at(512);
	const unsigned long own = page_of_module();
	helper_page_table_lock(mm);
	EXPECT_DEATH(helper_set_pud(root, helper_virt_to_phys(object) | 3),
		     "belongs to a slab cache and is given to the page tables");
	EXPECT_DEATH(helper_set_pud(root, page_to_phys(*contiguous) | 3), "belongs to a CMA area");
	EXPECT_DEATH(helper_set_pmd(static_cast<u64 *>(object), 0), "no entry of a table");
	helper_page_table_unlock(mm);
	free_pages(own, 0);

	const auto on_page = reinterpret_cast<unsigned long>(page_address(*virt_to_page(object)));
	EXPECT_DEATH(free_pages(on_page, 0), "free of what is not a page of its own");
	EXPECT_DEATH(kfree(as_pointer(page_of_module())), "not a slab object");
	page outside{};
	EXPECT_DEATH(helper_page_set_flag(&outside, 27), "not in the memory map");
}

} // namespace
