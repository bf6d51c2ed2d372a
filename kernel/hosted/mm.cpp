// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/mm.h>

#include <cstdint>

void hosted::make_compound(std::span<page> pages)
{
	const auto head = reinterpret_cast<std::uintptr_t>(pages.data());
	for (page &tail : pages.subspan(1))
		tail.compound_head.store(head | 1, std::memory_order_release);
}

unsigned long helper_page_compound_head_word(const page *page)
{
	return page->compound_head.load(std::memory_order_acquire);
}

int helper_page_refcount(const page *page)
{
	return page->refcount.load(std::memory_order_acquire);
}
