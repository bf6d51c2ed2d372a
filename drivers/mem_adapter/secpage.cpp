// SPDX-License-Identifier: GPL-2.0-only
// Rewrites the kernel's own page tables for a secure memory range. A block that changes as a whole
// stays a block, one that changes in part is split, and the rest becomes pages.
//
// Lock: init_mm's page_table_lock, a spinlock taken with interrupts on, protects the tables against
// other calls. It is held for the whole walk, except while a table is allocated. Tolerated race:
// not all other writers of the kernel's tables take it.
#include <kernel/gfp.h>
#include <kernel/pgtable.h>

#include "debug_symbol.h"
#include "mem_adapter.h"

namespace
{

constexpr unsigned long table_entries = 512;
constexpr u64 page_size = 1ULL << KERNEL_PAGE_SHIFT;
constexpr u64 level1_size = 1ULL << 30;
constexpr u64 level2_size = 1ULL << 21;

// Bits of a page table entry.
constexpr u64 type_mask = 3;
constexpr u64 type_block = 1;
constexpr u64 type_table = 3;
constexpr u64 attr_index = 0x1c;
constexpr u64 read_only = 1ULL << 7;
constexpr u64 not_global = 1ULL << 11;
constexpr u64 writable = 1ULL << 51;
constexpr u64 contiguous = 1ULL << 52;
constexpr u64 privileged_no_exec = 1ULL << 53;
constexpr u64 table_address = 0x0000fffffffff000;
// A page of kernel memory: inner shareable, accessed, writable, never executed.
constexpr u64 page_kernel = 0x0068000000000703;

bool is_block(u64 entry)
{
	return (entry & type_mask) == type_block;
}

bool is_table(u64 entry)
{
	return entry != 0 && !is_block(entry);
}

bool is_aligned(u64 a, u64 b, u64 c, u64 size)
{
	return ((a | b | c) & (size - 1)) == 0;
}

u64 index_attribute(u64 entry)
{
	return (entry & attr_index) >> 2;
}

// Whether a live block may be rewritten without being unmapped first.
bool is_safe(u64 old_entry, u64 new_entry)
{
	u64 changeable = read_only | writable | not_global | privileged_no_exec;

	if (old_entry == 0)
		return true;
	if ((old_entry | new_entry) & contiguous)
		return false;
	if (old_entry & ~new_entry & not_global)
		return false;
	// 0 and 1 are normal memory, untagged and tagged.
	if (index_attribute(old_entry) <= 1 && index_attribute(new_entry) <= 1)
		changeable |= attr_index;
	return ((old_entry ^ new_entry) & ~changeable) == 0;
}

u64 block_entry(u64 phys, u64 prot)
{
	return (phys & ~(page_size - 1)) | (prot & ~type_mask) | type_block;
}

u64 *table_of(u64 entry)
{
	return static_cast<u64 *>(helper_phys_to_virt(entry & table_address));
}

// The walk of one call.
class range_walk
{
public:
	range_walk(struct mm_struct *mm, u64 phys, u64 virt, u64 end, u64 prot)
		: mm_(mm), virt_to_phys_(phys - virt), virt_(virt), end_(end), prot_(prot)
	{
	}

	// How many blocks were split whose neighbours belong to the same contiguous run.
	[[nodiscard]] unsigned int contiguous_splits() const
	{
		return contiguous_splits_;
	}

	// Returns false if there was no memory for a table.
	bool run(u64 *root)
	{
		helper_page_table_lock(mm_);
		const bool done = change_level1(root);
		helper_page_table_unlock(mm_);
		return done;
	}

private:
	using setter = void(u64 *entry, u64 value);

	// The next boundary, but at most the end. At the top of the address space the boundary
	// wraps around to 0, hence the comparison of last bytes.
	static u64 boundary(u64 addr, u64 size, u64 end)
	{
		const u64 next = (addr | (size - 1)) + 1;

		return next - 1 < end - 1 ? next : end;
	}

	[[nodiscard]] u64 phys(u64 addr) const
	{
		return addr + virt_to_phys_;
	}

	[[nodiscard]] bool is_whole_block(u64 addr, u64 next, u64 size, u64 entry) const
	{
		return is_aligned(addr, next, phys(addr), size) && is_block(entry);
	}

	void change_block(u64 *entry, u64 old_entry, u64 addr, setter *set) const REQUIRES(mm_)
	{
		const u64 value = block_entry(phys(addr), prot_);

		if (is_safe(old_entry, value))
			set(entry, value);
	}

	bool change_level1(u64 *root) REQUIRES(mm_)
	{
		for (u64 addr = virt_; addr != end_;) {
			const u64 next = boundary(addr, level1_size, end_);
			u64 *entry = &root[addr >> 30 & (table_entries - 1)];

			const u64 old_entry = READ_ONCE(*entry);

			if (is_whole_block(addr, next, level1_size, old_entry)) {
				change_block(entry, old_entry, addr, helper_set_pud);
			} else {
				u64 *table =
					ensure_table(entry, old_entry, level1_size, helper_set_pud);

				if (!table || !change_level2(table, addr, next))
					return false;
			}
			addr = next;
		}
		return true;
	}

	bool change_level2(u64 *table, u64 first, u64 end) REQUIRES(mm_)
	{
		for (u64 addr = first; addr != end;) {
			const u64 next = boundary(addr, level2_size, end);
			u64 *entry = &table[addr >> 21 & (table_entries - 1)];

			const u64 old_entry = READ_ONCE(*entry);

			if (is_whole_block(addr, next, level2_size, old_entry)) {
				change_block(entry, old_entry, addr, helper_set_pmd);
			} else {
				u64 *pages =
					ensure_table(entry, old_entry, level2_size, helper_set_pmd);

				if (!pages)
					return false;
				change_pages(pages, addr, next);
			}
			addr = next;
		}
		return true;
	}

	void change_pages(u64 *table, u64 first, u64 end) const REQUIRES(mm_)
	{
		for (u64 addr = first; addr != end; addr += page_size)
			helper_set_pte(&table[addr >> KERNEL_PAGE_SHIFT & (table_entries - 1)],
				       (phys(addr) | prot_) & ~contiguous);
	}

	// The table that an entry points to, made if there is none. Returns null if there is no
	// memory for it.
	u64 *ensure_table(u64 *entry, u64 old_entry, u64 size, setter *set) REQUIRES(mm_)
	{
		if (is_table(old_entry))
			return table_of(old_entry);

		helper_page_table_unlock(mm_);
		auto *table =
			reinterpret_cast<u64 *>(helper_get_zeroed_page(GFP_KERNEL | __GFP_ZERO));
		helper_page_table_lock(mm_);
		if (!table)
			return nullptr;

		old_entry = READ_ONCE(*entry);
		// Another call made one meanwhile, and may have changed pages in it.
		if (is_table(old_entry)) {
			free_pages(reinterpret_cast<unsigned long>(table), 0);
			return table_of(old_entry);
		}
		if (old_entry != 0)
			split(table, old_entry, size);
		if (old_entry & contiguous)
			contiguous_splits_++;
		// Another CPU's walk must not find the table before its contents, be they only
		// zeroes: it would follow whatever the page held before.
		helper_dsb_ishst();
		set(entry, helper_virt_to_phys(table) | type_table);
		helper_flush_tlb_all();
		return table;
	}

	// Fills a new table with the pieces of a block. Pieces of 2 MiB keep the block's
	// attributes; pages become ordinary kernel memory.
	static void split(u64 *table, u64 block, u64 size)
	{
		const u64 piece = size / table_entries;
		const u64 address = block & table_address & ~(size - 1);
		const u64 page = page_kernel | (arm64_use_ng_mappings ? not_global : 0);
		const u64 attributes =
			size == level1_size ? block & ~(table_address & ~(size - 1)) : page;

		for (unsigned long i = 0; i < table_entries; i++) {
			const u64 value = (address + i * piece) | attributes;

			if (size == level1_size)
				helper_set_pmd(&table[i], value);
			else
				helper_set_pte(&table[i], value);
		}
	}

	struct mm_struct *mm_;
	u64 virt_to_phys_;
	u64 virt_;
	u64 end_;
	u64 prot_;
	unsigned int contiguous_splits_ = 0;
};

// The address without the tag that memory tagging keeps in its top byte.
unsigned long untagged(unsigned long virt)
{
	return static_cast<unsigned long>(static_cast<long>(virt << 8) >> 8);
}

// In kernel addresses all bits above the 39 that the tables translate are set.
bool is_kernel_range(u64 virt, u64 size)
{
	constexpr u64 lowest = ~0ULL << 39;

	return virt >= lowest && size - 1 <= ~virt;
}

} // namespace

void tarn_change_secpage_range(phys_addr_t phys, unsigned long virt, unsigned long size,
			       pgprot_t prot)
{
	if (size == 0)
		return;
	virt = untagged(virt);
	if (((phys | virt | size) & (page_size - 1)) != 0 || !is_kernel_range(virt, size)) {
		MEM_ERR("bad range: phys 0x%llx virt %p size 0x%lx\n", phys,
			reinterpret_cast<void *>(virt), size);
		return;
	}

	auto *mm = static_cast<struct mm_struct *>(look_up_symbol(ADS_INIT_MM, __func__));

	if (!mm)
		return;

	u64 *root = helper_kernel_root_table(mm);

	if (!root) {
		MEM_ERR("cannot access the kernel's page tables\n");
		return;
	}

	range_walk walk(mm, phys, virt, virt + size, prot.pgprot);

	if (!walk.run(root))
		MEM_ERR("no memory for a page table, range only partly changed\n");
	if (walk.contiguous_splits() != 0)
		MEM_INFO("split %u blocks of contiguous runs, their neighbours keep the bit\n",
			 walk.contiguous_splits());
}
