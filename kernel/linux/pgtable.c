// SPDX-License-Identifier: GPL-2.0-only
#include <asm/barrier.h>
#include <asm/tlbflush.h>
#include <linux/mm.h>
#include <linux/pgtable.h>

#include <kernel/pgtable.h>

#include "symbols.h"

u64 *helper_kernel_root_table(struct mm_struct *init_mm)
{
	if (CONFIG_PGTABLE_LEVELS != 3 || PAGE_SHIFT != 12 || VA_BITS != 39 ||
	    !kernel_symbols.set_swapper_pgd)
		return NULL;
	return (u64 *)init_mm->pgd;
}

void helper_page_table_lock(struct mm_struct *mm)
{
	spin_lock(&mm->page_table_lock);
}

void helper_page_table_unlock(struct mm_struct *mm)
{
	spin_unlock(&mm->page_table_lock);
}

void *helper_phys_to_virt(u64 phys)
{
	return phys_to_virt(phys);
}

u64 helper_virt_to_phys(const void *addr)
{
	return virt_to_phys((void *)addr);
}

/* The root table is mapped read-only; the kernel has a special function to write it. */
void helper_set_pud(u64 *entry, u64 value)
{
	kernel_symbols.set_swapper_pgd((pgd_t *)entry, __pgd(value));
}

void helper_set_pmd(u64 *entry, u64 value)
{
	set_pmd((pmd_t *)entry, __pmd(value));
}

void helper_set_pte(u64 *entry, u64 value)
{
	set_pte((pte_t *)entry, __pte(value));
}

void helper_dsb_ishst(void)
{
	dsb(ishst);
}

void helper_flush_tlb_all(void)
{
	flush_tlb_all();
}
