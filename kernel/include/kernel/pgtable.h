/* SPDX-License-Identifier: GPL-2.0-only */
/* The kernel's own page tables: three levels of 512 entries, 39-bit addresses, pages of 4 KiB. */
#pragma once

#include <kernel/gfp.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct mm_struct;

typedef u64 phys_addr_t;

/* The attributes of a page entry. */
typedef struct {
	u64 pgprot;
} pgprot_t;

/* Whether kernel mappings are not global. */
extern bool arm64_use_ng_mappings;

/* Frees 2^order pages. Context: any. */
void free_pages(unsigned long addr, unsigned int order);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The root table of the kernel's memory descriptor; null where its tables have another form than
 * the above, or where this kernel does not let them be written. */
u64 *helper_kernel_root_table(struct mm_struct *init_mm);
/* The spinlock over the tables. */
void helper_page_table_lock(struct mm_struct *mm) ACQUIRE(mm);
void helper_page_table_unlock(struct mm_struct *mm) RELEASE(mm);

/* One zeroed page in the linear map; 0 on failure. Sleeps where gfp allows it. */
unsigned long helper_get_zeroed_page(gfp_t gfp);
void *helper_phys_to_virt(u64 phys);
u64 helper_virt_to_phys(const void *addr);

/* One store of an entry of level 1, 2 and 3, with the barriers that the kernel puts behind a valid
 * one. Entries of level 1 belong to the root table. */
void helper_set_pud(u64 *entry, u64 value);
void helper_set_pmd(u64 *entry, u64 value);
void helper_set_pte(u64 *entry, u64 value);
/* Invalidates all translations on all CPUs, and waits for it. */
void helper_flush_tlb_all(void);

KERNEL_C_END
