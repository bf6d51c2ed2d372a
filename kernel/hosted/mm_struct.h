// SPDX-License-Identifier: GPL-2.0-only
// A memory descriptor: a process's, or the kernel's own.
#pragma once

#include <array>
#include <atomic>

#include <kernel/spinlock.h>

struct CAPABILITY("page tables") mm_struct {
	std::array<std::atomic<long>, 4> counters{}; // pages, by enum mm_counter
	raw_spinlock_t page_table_lock{};
	u64 *pgd = nullptr; // the root table, under page_table_lock
};
