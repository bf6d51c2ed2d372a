/* SPDX-License-Identifier: GPL-2.0-only */
/* The kernel's own page tables: three levels of 512 entries, 39-bit addresses, pages of 4 KiB. */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct mm_struct;

typedef u64 phys_addr_t;

/* The attributes of a page entry. */
typedef struct {
	u64 pgprot;
} pgprot_t;

/* Whether kernel mappings are non-global. */
extern bool arm64_use_ng_mappings;

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The root table of the kernel's memory descriptor; null if its tables have a different layout, or
 * if this kernel does not allow writing them. */
u64 *helper_kernel_root_table(struct mm_struct *init_mm);
/* The spinlock that protects the tables. */
void helper_page_table_lock(struct mm_struct *mm) ACQUIRE(mm);
void helper_page_table_unlock(struct mm_struct *mm) RELEASE(mm);

void *helper_phys_to_virt(u64 phys);
u64 helper_virt_to_phys(const void *addr);

/* Store an entry of level 1, 2 or 3, with the barriers that the kernel uses after a valid one.
 * Entries of level 1 belong to the root table. */
void helper_set_pud(u64 *entry, u64 value);
void helper_set_pmd(u64 *entry, u64 value);
void helper_set_pte(u64 *entry, u64 value);
/* Orders the stores so far before later ones, also for other CPUs' table walks. */
void helper_dsb_ishst(void);
/* Invalidates all translations on all CPUs and waits until that is done. */
void helper_flush_tlb_all(void);

KERNEL_C_END
