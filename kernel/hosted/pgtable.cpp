// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/pgtable.h>

#include <atomic>
#include <mutex>
#include <utility>

#include <hosted/fault.h>
#include <hosted/judge.h>
#include <hosted/mm_struct.h>
#include <hosted/pgtable_entry.h>
#include <hosted/pgtable_judge.h>
#include <hosted/physmem.h>
#include <hosted/spinlock.h>
#include <kernel/printk.h>

bool arm64_use_ng_mappings;

using namespace hosted;

namespace
{

constinit mm_struct kernel_mm{};
constinit lock_class_key page_table_lock_key{};

// Counting a barrier is one: the addition orders all that comes before and after it.
constinit std::atomic<unsigned long> barriers{0};
constinit std::atomic<unsigned long> flushes{0};

constinit std::atomic<bool> tracing{false};
constinit std::atomic<bool> warned{false};

struct notes {
	std::mutex lock;
	std::vector<table_event> events;
	std::function<void()> other; // at the next page
};

notes &noted()
{
	static notes the_notes;
	return the_notes;
}

void note(const table_event &event)
{
	if (!tracing.load(std::memory_order_relaxed)) [[likely]]
		return;
	const std::lock_guard guard(noted().lock);
	noted().events.push_back(event);
}

void write_entry(int level, u64 *entry, u64 value, bool barrier)
{
	if constexpr (judging)
		judge_store(level, entry, value, kernel_mm.page_table_lock);
	if (kind_of(level, value) == entry_kind::table)
		if (const auto frame = frame_at(value & entry_address))
			set_use(*frame, frame_use::table);
	// with the walk's look at it
	__atomic_store_n(entry, value, __ATOMIC_RELEASE);
	note({table_event::kind::store, level, index_in_table(entry), value});
	if (!barrier)
		return;
	barriers.fetch_add(1);
	note({table_event::kind::barrier});
}

mm_struct &checked(mm_struct *mm)
{
	if (judging && mm != init_mm())
		judge_stop("page tables", "not the kernel's memory descriptor");
	return *mm;
}

} // namespace

namespace hosted
{

mm_struct *init_mm()
{
	return &kernel_mm;
}

table_counts table_activity()
{
	return {barriers, flushes};
}

table_trace::table_trace()
{
	const std::lock_guard guard(noted().lock);
	noted().events.clear();
	tracing = true;
}

table_trace::~table_trace()
{
	tracing = false;
}

std::vector<table_event> table_trace::events() const
{
	const std::lock_guard guard(noted().lock);
	return noted().events;
}

void at_next_table_page(std::function<void()> other)
{
	const std::lock_guard guard(noted().lock);
	noted().other = std::move(other);
}

void reset_page_tables()
{
	reset_physmem();
	const std::size_t root = allocate_frame(frame_use::table).value();
	judge_new_table(root, 1);
	kernel_mm.pgd = frame_memory(root);
	helper_raw_spin_lock_init(&kernel_mm.page_table_lock, "init_mm.page_table_lock",
				  &page_table_lock_key);
	barriers = flushes = 0;
	warned = false;
	arm64_use_ng_mappings = false;
	at_next_table_page(nullptr);
}

} // namespace hosted

u64 *helper_kernel_root_table(mm_struct *init_mm)
{
	return should_fail("kernel_root_table") ? nullptr : checked(init_mm).pgd;
}

void helper_page_table_lock(mm_struct *mm) NO_THREAD_SAFETY_ANALYSIS
{
	spin_lock(checked(mm).page_table_lock);
	if constexpr (judging)
		judge_begin_step();
}

void helper_page_table_unlock(mm_struct *mm) NO_THREAD_SAFETY_ANALYSIS
{
	if constexpr (judging)
		judge_unlock(checked(mm).page_table_lock);
	spin_unlock(checked(mm).page_table_lock);
}

unsigned long helper_get_zeroed_page(gfp_t gfp)
{
	if (gfp & __GFP_DIRECT_RECLAIM)
		might_sleep("__get_free_pages");
	std::function<void()> other;
	{
		const std::lock_guard guard(noted().lock);
		other = std::exchange(noted().other, nullptr);
	}
	if (other)
		other();
	if (should_fail("__get_free_pages"))
		return 0;
	const auto frame = allocate_frame(frame_use::allocated);
	if (!frame)
		return 0;
	if constexpr (judging)
		judge_new_table(*frame, 0);
	return reinterpret_cast<unsigned long>(frame_memory(*frame));
}

void free_pages(unsigned long addr, unsigned int order)
{
	const auto frame = frame_at(reinterpret_cast<void *>(addr));
	if (!frame || addr % 4096 != 0 || order != 0)
		judge_stop("page allocator", "free of what is not a page");
	if (use_of(*frame) == frame_use::free)
		judge_stop("page allocator", "double free of a page");
	if (use_of(*frame) == frame_use::table)
		judge_stop("page allocator", "free of a page that is in the page tables");
	release_frame(*frame);
}

void *helper_phys_to_virt(u64 phys)
{
	const auto frame = frame_at(phys);
	if (!frame || use_of(*frame) == frame_use::free)
		judge_stop("linear map", "no page in use is at that physical address");
	return reinterpret_cast<unsigned char *>(frame_memory(*frame)) + phys % 4096;
}

u64 helper_virt_to_phys(const void *addr)
{
	const auto frame = frame_at(addr);
	if (!frame)
		judge_stop("linear map", "no memory is at that address");
	return frame_phys(*frame) + reinterpret_cast<unsigned long>(addr) % 4096;
}

void helper_set_pud(u64 *entry, u64 value)
{
	write_entry(1, entry, value, (value & 1) != 0);
}

void helper_set_pmd(u64 *entry, u64 value)
{
	write_entry(2, entry, value, (value & 1) != 0);
}

void helper_set_pte(u64 *entry, u64 value)
{
	constexpr u64 looked_at = 1 | entry_user | entry_user_no_exec;
	const u64 old = READ_ONCE(*entry);

	if ((old & 1) != 0 && (old & entry_contiguous) != 0 && !warned.exchange(true))
		helper_warn("arch/arm64/include/asm/pgtable.h", 0);
	write_entry(3, entry, value, (value & looked_at) == (1 | entry_user_no_exec));
}

void helper_flush_tlb_all(void)
{
	if constexpr (judging)
		judge_flush(kernel_mm.page_table_lock);
	flushes.fetch_add(1);
	note({table_event::kind::flush});
}
