// SPDX-License-Identifier: GPL-2.0-only
// Page structures, free-standing: a test makes as many as it needs.
#pragma once

#include <atomic>
#include <span>

#include <kernel/mm.h>

struct page {
	std::atomic<unsigned long> compound_head{0};
	std::atomic<int> refcount{1};
};

namespace hosted
{

// Makes the first page the head of the others.
void make_compound(std::span<page> pages);

} // namespace hosted
