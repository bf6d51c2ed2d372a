// SPDX-License-Identifier: GPL-2.0-only
// The kernel's own page tables in simulated physical memory: three levels of 512 entries, pages of
// 4 KiB, addresses of 39 bits; what a walk of them finds, and what was done to them.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <kernel/pgtable.h>

namespace hosted
{

inline constexpr u64 lowest_kernel_address = ~u64{0} << 39;

// The kernel's memory descriptor.
mm_struct *init_mm();

// What one entry of a level maps: 1 GiB, 2 MiB or 4 KiB.
constexpr u64 entry_span(int level)
{
	return u64{1} << (39 - 9 * level);
}

// Writes the entry of a level as the kernel does while it boots, and makes the tables that lead to
// it, which must not be under a block. No lock, no barrier, nothing counted.
void boot_map(u64 virt, int level, u64 entry);

struct translation {
	u64 phys;
	u64 attributes; // all bits of the entry but its kind and its output address
	int level;	// of the entry

	bool operator==(const translation &) const = default;
};
// What the hardware's walk finds now; none where nothing is mapped. Lock-free.
std::optional<translation> translate(u64 virt);

// Since the reset: barriers behind entries, flushes of all translations.
struct table_counts {
	unsigned long barriers;
	unsigned long flushes;

	bool operator==(const table_counts &) const = default;
};
table_counts table_activity();

struct table_event {
	enum class kind { store, barrier, flush } what;
	int level = 0; // of a store, as the rest
	unsigned index = 0;
	u64 entry = 0;

	bool operator==(const table_event &) const = default;
};

// Notes what is done to the tables while it lives. One at a time.
class table_trace
{
public:
	table_trace();
	~table_trace();
	table_trace(const table_trace &) = delete;
	table_trace &operator=(const table_trace &) = delete;

	[[nodiscard]] std::vector<table_event> events() const;
};

// What another CPU does while the next caller waits for a table's page.
void at_next_table_page(std::function<void()> other);

// Back to an empty root table, all other frames free.
void reset_page_tables();

} // namespace hosted
