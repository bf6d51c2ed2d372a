// SPDX-License-Identifier: GPL-2.0-only
// Entries of the kernel's page tables, as the hardware reads them.
#pragma once

#include <cstdint>

#include <hosted/pgtable.h>

namespace hosted
{

inline constexpr unsigned table_entries = 512;
inline constexpr int last_level = 3;
inline constexpr u64 entry_address = 0x0000fffffffff000;
inline constexpr u64 entry_user = u64{1} << 6;
inline constexpr u64 entry_contiguous = u64{1} << 52;
inline constexpr u64 entry_user_no_exec = u64{1} << 54;

enum class entry_kind { none, leaf, table };

constexpr entry_kind kind_of(int level, u64 entry)
{
	switch (entry & 3) {
	case 1:
		return level < last_level ? entry_kind::leaf : entry_kind::none;
	case 3:
		return level < last_level ? entry_kind::table : entry_kind::leaf;
	default:
		return entry_kind::none;
	}
}

constexpr u64 output_bits(int level)
{
	return entry_address & ~(entry_span(level) - 1);
}

constexpr unsigned entry_index(u64 virt, int level)
{
	return virt / entry_span(level) % table_entries;
}

// The index of an entry, from its address.
inline unsigned index_in_table(const u64 *entry)
{
	return reinterpret_cast<std::uintptr_t>(entry) / sizeof(u64) % table_entries;
}

inline u64 read_entry(const u64 *entry)
{
	return __atomic_load_n(entry, __ATOMIC_ACQUIRE);
}

// An empty table of a level, in a page of its own.
u64 *make_table(int level);
// The table that an entry points to; stops the program if there is none.
u64 *table_behind(u64 entry);

} // namespace hosted
