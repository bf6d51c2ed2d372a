/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
struct page;
#endif

KERNEL_C_BEGIN

/* The page's compound_head word: bit 0 set means a tail page, the rest then its head's address.
 * Acquire read, with the release with which the kernel builds a compound page. */
unsigned long helper_page_compound_head_word(const struct page *page);
/* The page's reference count. Acquire read, with the release of the last reference's drop. */
int helper_page_refcount(const struct page *page);

KERNEL_C_END
