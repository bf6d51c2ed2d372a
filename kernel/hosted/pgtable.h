// SPDX-License-Identifier: GPL-2.0-only
// The kernel's own page tables in simulated physical memory: three levels of 512 entries, 4 KiB
// pages, 39-bit addresses. Shows what a walk finds and what was done to the tables.
#pragma once

#include <optional>
#include <vector>

#include <kernel/pgtable.h>

namespace hosted
{

inline constexpr u64 lowest_kernel_address = ~u64{0} << 39;

// The kernel's memory descriptor.
mm_struct *init_mm();

// The size that one entry of a level maps: 1 GiB, 2 MiB or 4 KiB.
constexpr u64 entry_span(int level)
{
	return u64{1} << (39 - 9 * level);
}

// Writes an entry of a level as the kernel does while it boots, and makes the tables that lead to
// it. No block may be on the way. Takes no lock, issues no barrier and counts nothing.
void boot_map(u64 virt, int level, u64 entry);

struct translation {
	u64 phys;
	u64 attributes; // the entry without its kind and output address
	int level;	// of the entry

	bool operator==(const translation &) const = default;
};
// The result of the hardware's walk; none where nothing is mapped. Lock-free.
std::optional<translation> translate(u64 virt);

// Store barriers and flushes of all translations, since the reset.
struct table_counts {
	unsigned long barriers;
	unsigned long flushes;

	bool operator==(const table_counts &) const = default;
};
table_counts table_activity();

struct table_event {
	enum class kind { store, barrier, flush } what;
	int level = 0; // this and the rest: of a store
	unsigned index = 0;
	u64 entry = 0;

	bool operator==(const table_event &) const = default;
};

// Records what is done to the tables while it lives. One at a time.
class table_trace
{
public:
	table_trace();
	~table_trace();
	table_trace(const table_trace &) = delete;
	table_trace &operator=(const table_trace &) = delete;

	[[nodiscard]] std::vector<table_event> events() const;
};

// Resets to an empty root table with all other frames free.
void reset_page_tables();

} // namespace hosted
