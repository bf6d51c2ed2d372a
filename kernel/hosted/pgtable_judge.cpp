// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/pgtable_judge.h>

#include <array>
#include <atomic>
#include <cstdint>

#include <fmt/format.h>

#include <hosted/engine/address_range.h>
#include <hosted/engine/judge.h>
#include <hosted/pgtable_entry.h>
#include <hosted/physmem.h>
#include <hosted/spinlock.h>

namespace hosted
{
namespace
{

// Guarded by the tables' lock once the page is in them; before that only its maker uses it.
struct table_page {
	int level;
	unsigned long step; // the one that written belongs to
	std::array<u64, table_entries / 64> written;
	unsigned long last_write; // its number
};

table_page &state_of(const page &p)
{
	static auto *const pages = reinterpret_cast<table_page *>(
		reserve_range(total_pages * sizeof(table_page), access::open));
	return pages[page_number(p)];
}

constinit std::atomic<unsigned long> step{0};
constinit bool flush_needed = false; // under the tables' lock

// Writes to tables, numbered. Another CPU's walk sees those up to its barrier before any later one.
constinit std::atomic<unsigned long> writes{0};
thread_local constinit unsigned long seen_by_walks = 0;

void number_write(table_page &page)
{
	page.last_write = writes.fetch_add(1, std::memory_order_relaxed) + 1;
}

[[noreturn]] void stop(std::string_view what, int level, unsigned index)
{
	judge_stop("page tables", fmt::format("{} (level {}, entry {})", what, level, index));
}

// A table that replaces a block must map what the block mapped, from the first moment on.
bool maps_the_same(const u64 *table, int level, u64 block)
{
	const u64 first = block & output_bits(level - 1);
	for (unsigned i = 0; i < table_entries; i++) {
		const u64 entry = read_entry(&table[i]);
		if (kind_of(level, entry) != entry_kind::leaf ||
		    (entry & output_bits(level)) != first + i * entry_span(level))
			return false;
	}
	return true;
}

void check_new_table(int level, unsigned index, u64 old, u64 value)
{
	const page *p = phys_to_page(value & entry_address);
	const page_use use = use_of(p);

	if (kind_of(level, old) == entry_kind::table)
		stop("a table takes another's place", level, index);
	if (!has_owner(use))
		stop("a table that was not allocated", level, index);
	if (use == page_use::table)
		stop("a table that is installed already", level, index);
	if (use != page_use::allocated)
		stop_second_owner(*p, page_use::table);
	table_page &child = state_of(*p);
	if (child.level != 0 && child.level != level + 1)
		stop("a table with entries of another level", level, index);
	child.level = level + 1;
	if (child.last_write > seen_by_walks)
		stop("a table is installed without a barrier behind its contents", level, index);
	if (kind_of(level, old) != entry_kind::leaf)
		return;
	if (!maps_the_same(reinterpret_cast<u64 *>(page_address(*p)), level + 1, old))
		stop("a table takes a block's place before it maps the same", level, index);
	flush_needed = true;
}

void check_live_entry(int level, unsigned index, u64 old, u64 value)
{
	if (kind_of(level, old) == entry_kind::table)
		stop("a table is cut off", level, index);
	if (level == last_level || kind_of(level, old) != entry_kind::leaf || value == 0)
		return;
	if (((old ^ value) & output_bits(level)) != 0 || ((old | value) & entry_contiguous) != 0)
		stop("a live block is moved", level, index);
}

} // namespace

void judge_begin_step()
{
	step.fetch_add(1, std::memory_order_relaxed);
}

void judge_new_table(const page &p, int level)
{
	table_page &page = state_of(p);
	page = {level, 0, {}, 0};
	number_write(page);
}

void judge_store(int level, const u64 *entry, u64 value, const raw_spinlock_t &lock)
{
	const page *p = virt_to_page(entry);
	const page_use use = use_of(p);
	const unsigned index = index_in_table(entry);

	if ((use != page_use::allocated && use != page_use::table) ||
	    reinterpret_cast<std::uintptr_t>(entry) % sizeof(u64) != 0)
		stop("no entry of a table is there", level, index);
	const bool live = use == page_use::table;
	if (live && !holds(lock))
		stop("an entry is written without the lock", level, index);
	if (live && flush_needed)
		stop("an entry is written before the flush that a new table needs", level, index);

	table_page &page = state_of(*p);
	if (page.level == 0)
		page.level = level;
	if (page.level != level)
		stop(fmt::format("it belongs to a table of level {}", page.level), level, index);
	if (const unsigned long now = step.load(std::memory_order_relaxed); page.step != now) {
		page.step = now;
		page.written = {};
	}
	u64 &word = page.written[index / 64];
	if ((word >> (index % 64) & 1) != 0)
		stop("an entry is written twice in one step", level, index);
	word |= u64{1} << (index % 64);

	number_write(page);
	const u64 old = read_entry(entry);
	if (kind_of(level, value) == entry_kind::table)
		check_new_table(level, index, old, value);
	else if (live)
		check_live_entry(level, index, old, value);
}

void judge_barrier()
{
	seen_by_walks = writes.load(std::memory_order_relaxed);
}

void judge_flush(const raw_spinlock_t &lock)
{
	judge_barrier();
	if (holds(lock))
		flush_needed = false;
	judge_begin_step();
}

void judge_unlock(const raw_spinlock_t &lock)
{
	if (holds(lock) && flush_needed)
		judge_stop("page tables", "unlocked before the flush that a new table needs");
	judge_begin_step();
}

} // namespace hosted
