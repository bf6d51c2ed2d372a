// SPDX-License-Identifier: GPL-2.0-only
// Walks of the kernel's page tables: the hardware's, and that of the code which boots the kernel.
#include <hosted/judge.h>
#include <hosted/pgtable_entry.h>
#include <hosted/pgtable_judge.h>
#include <hosted/physmem.h>

namespace hosted
{
namespace
{

u64 *root_table()
{
	return frame_memory(0);
}

} // namespace

u64 *table_behind(u64 entry)
{
	const auto frame = frame_at(entry & entry_address);
	if (!frame || use_of(*frame) != frame_use::table)
		judge_stop("page tables", "an entry leads to a table that does not exist");
	return frame_memory(*frame);
}

void boot_map(u64 virt, int level, u64 entry)
{
	u64 *table = root_table();
	for (int at = 1; at < level; at++) {
		u64 &way = table[entry_index(virt, at)];
		if (way == 0) {
			const auto frame = allocate_frame(frame_use::table);
			judge_new_table(frame.value(), at + 1);
			way = frame_phys(*frame) | 3;
		}
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
	const u64 *table = root_table();
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
