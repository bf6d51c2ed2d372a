// SPDX-License-Identifier: GPL-2.0-only
// The rules for a writer of live page tables. It holds their lock, writes no entry twice in one
// step, installs a table only when that is filled and behind a barrier, never over another one, and
// flushes right after it has split a block. A step begins with the lock or a flush and ends at the
// next flush or the unlock.
#pragma once

#include <kernel/spinlock.h>

struct page;

namespace hosted
{

void judge_begin_step();
// A fresh page may become a table. Level 0: its first entry decides the level.
void judge_new_table(const page &p, int level);
// Called before the store. lock: the tables' lock.
void judge_store(int level, const u64 *entry, u64 value, const raw_spinlock_t &lock);
// After a store barrier of this CPU.
void judge_barrier();
void judge_flush(const raw_spinlock_t &lock);
void judge_unlock(const raw_spinlock_t &lock);

} // namespace hosted
