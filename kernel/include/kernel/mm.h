/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct page;

/* A reference that pins its page, among the flags of the kernel's page grabbing functions. */
#define FOLL_PIN 0x80000u

/* Logs the page's state under a reason. Context: any. */
void dump_page(const struct page *page, const char *reason);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The page's compound_head word: bit 0 set means a tail page, the rest then its head's address.
 * Acquire read, with the release with which the kernel builds a compound page. */
unsigned long helper_page_compound_head_word(const struct page *page);
/* The page's reference count. Acquire read, with the release of the last reference's drop. */
int helper_page_refcount(const struct page *page);

/* Context: any, for all of these; what they tell of a page that is not held may be outdated. */
const struct page *helper_pfn_to_page(unsigned long pfn);
unsigned long helper_page_to_pfn(const struct page *page);
/* Pages of the folio that holds the page. */
unsigned long helper_page_folio_pages(const struct page *page);
/* Whether the page is the head of a free block, and of which order; the order of any other page is
 * anything. */
bool helper_page_is_buddy(const struct page *page);
unsigned long helper_page_buddy_order(const struct page *page);
/* The migrate type of the pageblock that holds the page; 0 where the kernel cannot tell. */
unsigned long helper_page_migratetype(const struct page *page);

KERNEL_C_END
