// SPDX-License-Identifier: GPL-2.0-only
// What a writer of live page tables must not do: write them without their lock, an entry twice in
// one step, a table before it is filled, a new one where another stands, or go on after a block was
// split without the flush that ends its old translation. A step lasts from the lock or a flush to
// the next flush or the unlock.
#pragma once

#include <cstddef>

#include <kernel/spinlock.h>

namespace hosted
{

void judge_begin_step();
// A frame begins to be a table page; level 0: of a level that its first entry decides.
void judge_new_table(std::size_t frame, int level);
// Before the store. lock is the tables'.
void judge_store(int level, const u64 *entry, u64 value, const raw_spinlock_t &lock);
void judge_flush(const raw_spinlock_t &lock);
void judge_unlock(const raw_spinlock_t &lock);

} // namespace hosted
