// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/pgtable.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include <hosted/engine/address_range.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/log.h>
#include <hosted/mm_struct.h>
#include <hosted/pgtable_entry.h>
#include <hosted/pgtable_judge.h>
#include <hosted/physmem.h>
#include <hosted/spinlock.h>

bool arm64_use_ng_mappings;

using namespace hosted;

namespace
{

constinit mm_struct kernel_mm{};
constinit lock_class_key page_table_lock_key{};

constinit std::atomic<unsigned long> barriers{0};
constinit std::atomic<unsigned long> flushes{0};

constinit std::atomic<bool> tracing{false};
constinit std::atomic<bool> warned{false};

struct table_log {
	std::mutex lock;
	std::vector<table_event> events;
};

table_log &the_log()
{
	static table_log instance;
	return instance;
}

void log_event(const table_event &event)
{
	if (!tracing.load(std::memory_order_relaxed)) [[likely]]
		return;
	const std::lock_guard guard(the_log().lock);
	the_log().events.push_back(event);
}

// Whether all that this CPU has stored to the tables is behind a barrier.
thread_local constinit bool in_order = true;

// A store by itself orders nothing: another CPU's walk may follow the entry to a table whose
// contents it does not see yet. Only a barrier before the store puts the contents first.
void store_weakly(u64 *entry, u64 value)
{
	// pairs with read_entry()
	if (std::exchange(in_order, false))
		__atomic_store_n(entry, value, __ATOMIC_RELEASE);
	else
		__atomic_store_n(entry, value, __ATOMIC_RELAXED);
}

void issue_barrier()
{
	if constexpr (judging)
		judge_barrier();
	in_order = true;
	barriers.fetch_add(1, std::memory_order_relaxed);
	log_event({table_event::kind::barrier});
}

void write_entry(int level, u64 *entry, u64 value, bool barrier)
{
	if constexpr (judging)
		judge_store(level, entry, value, kernel_mm.page_table_lock);
	if (kind_of(level, value) == entry_kind::table)
		if (page *p = phys_to_page(value & entry_address))
			p->use.store(page_use::table, std::memory_order_release);
	store_weakly(entry, value);
	log_event({table_event::kind::store, level, index_in_table(entry), value});
	if (barrier)
		issue_barrier();
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

u64 *make_table(int level)
{
	page *p = allocate_block(0, page_use::table);
	if (!p)
		judge_stop("page tables", "no memory for a table");
	judge_new_table(*p, level);
	return static_cast<u64 *>(std::memset(page_address(*p), 0, page_size));
}

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
	const std::lock_guard guard(the_log().lock);
	the_log().events.clear();
	tracing = true;
}

table_trace::~table_trace()
{
	tracing = false;
}

std::vector<table_event> table_trace::events() const
{
	const std::lock_guard guard(the_log().lock);
	return the_log().events;
}

void reset_page_tables()
{
	release_all(page_use::table);
	release_all(page_use::allocated);
	kernel_mm.pgd = make_table(1);
	helper_raw_spin_lock_init(&kernel_mm.page_table_lock, "init_mm.page_table_lock",
				  &page_table_lock_key);
	barriers = flushes = 0;
	warned = false;
	arm64_use_ng_mappings = false;
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

void *helper_phys_to_virt(u64 phys)
{
	const page *p = phys_to_page(phys);
	if (!has_owner(use_of(p)))
		judge_stop("linear map", "no page in use is at that physical address");
	return page_address(*p) + phys % page_size;
}

u64 helper_virt_to_phys(const void *addr)
{
	const page *p = virt_to_page(addr);
	if (use_of(p) == page_use::absent)
		judge_stop("linear map", "no memory is at that address");
	return page_to_phys(*p) + reinterpret_cast<unsigned long>(addr) % page_size;
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
		warn("arch/arm64/include/asm/pgtable.h", 0);
	write_entry(3, entry, value, (value & looked_at) == (1 | entry_user_no_exec));
}

void helper_dsb_ishst(void)
{
	issue_barrier();
}

void helper_flush_tlb_all(void)
{
	if constexpr (judging)
		judge_flush(kernel_mm.page_table_lock);
	in_order = true; // it begins with a barrier
	flushes.fetch_add(1);
	log_event({table_event::kind::flush});
}
