/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
#include <kernel_build/sizes.h>

KERNEL_C_BEGIN

struct page;

/* The flag for a pinning reference in the kernel's page-grabbing functions. */
#define FOLL_PIN KERNEL_FOLL_PIN

/* Logs the page's state and a reason. Context: any. */
void dump_page(const struct page *page, const char *reason);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The page's compound_head word: if bit 0 is set this is a tail page, and the rest is its head's
 * address. Acquire read, paired with the release when the kernel builds a compound page. */
unsigned long helper_page_compound_head_word(const struct page *page);
/* The page's reference count. Acquire read, paired with the release when the last reference is
 * dropped. */
int helper_page_refcount(const struct page *page);

/* Context: any, for all that follows. What they tell of a page that the caller does not hold may be
 * stale on return. */
const struct page *helper_pfn_to_page(unsigned long pfn);
unsigned long helper_page_to_pfn(const struct page *page);
/* Number of pages in the page's folio. */
unsigned long helper_page_folio_pages(const struct page *page);
/* Whether the page is the head of a free block, and the block's order. The order is meaningless for
 * any other page. */
bool helper_page_is_buddy(const struct page *page);
unsigned long helper_page_buddy_order(const struct page *page);
/* The migrate type of the page's pageblock; 0 if the kernel lacks the function. */
unsigned long helper_page_migratetype(const struct page *page);

/* The n-th page structure behind one. */
struct page *helper_page_behind(struct page *page, unsigned long n);
/* One bit of a page's flags word, atomically. The caller holds the page. */
void helper_page_set_flag(struct page *page, unsigned int bit);
void helper_page_clear_flag(struct page *page, unsigned int bit);

KERNEL_C_END
