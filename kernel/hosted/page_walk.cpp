// SPDX-License-Identifier: GPL-2.0-only
// Walks of the kernel's page tables: by the hardware, and by the code that boots the kernel.
#include <hosted/engine/judge.h>
#include <hosted/mm_struct.h>
#include <hosted/pgtable_entry.h>
#include <hosted/physmem.h>

namespace hosted
{
u64 *table_behind(u64 entry)
{
	const page *p = phys_to_page(entry & entry_address);
	if (use_of(p) != page_use::table)
		judge_stop("page tables", "an entry leads to a table that does not exist");
	return reinterpret_cast<u64 *>(page_address(*p));
}

void boot_map(u64 virt, int level, u64 entry)
{
	u64 *table = init_mm()->pgd;
	for (int at = 1; at < level; at++) {
		u64 &way = table[entry_index(virt, at)];
		if (way == 0)
			way = page_to_phys(*virt_to_page(make_table(at + 1))) | 3;
		if (kind_of(at, way) != entry_kind::table)
			judge_stop("page tables", "a boot mapping under a block");
		table = table_behind(way);
	}
	table[entry_index(virt, level)] = entry;
}

std::optional<translation> translate(u64 virt)
{
	if (virt < lowest_kernel_address)
		return std::nullopt;
	const u64 *table = init_mm()->pgd;
	for (int level = 1;; level++) {
		const u64 entry = read_entry(&table[entry_index(virt, level)]);
		switch (kind_of(level, entry)) {
		case entry_kind::none:
			return std::nullopt;
		case entry_kind::leaf:
			return translation{(entry & output_bits(level)) + virt % entry_span(level),
					   entry & ~(output_bits(level) | 3), level};
		case entry_kind::table:
			table = table_behind(entry);
		}
	}
}

} // namespace hosted
