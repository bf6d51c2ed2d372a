// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/gfp.h>

#include <cstring>
#include <mutex>
#include <utility>

#include <hosted/engine/address_range.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/pgtable_judge.h>
#include <hosted/physmem.h>

namespace hosted
{
namespace
{

struct next_page {
	std::mutex lock;
	std::function<void()> run;
};

next_page &waiting()
{
	static next_page instance;
	return instance;
}

// Not under the lock, so that it may allocate and set the next one.
void run_at_page()
{
	std::function<void()> run;
	{
		const std::lock_guard guard(waiting().lock);
		run = std::exchange(waiting().run, nullptr);
	}
	if (run)
		run();
}

[[noreturn]] void stop_free(page_use use)
{
	switch (use) {
	case page_use::free:
		judge_stop("page allocator", "double free of a page");
	case page_use::table:
		judge_stop("page allocator", "free of a page that is in the page tables");
	default:
		judge_stop("page allocator", "free of what is not a page of its own");
	}
}

} // namespace

void at_next_page(std::function<void()> run)
{
	const std::lock_guard guard(waiting().lock);
	waiting().run = std::move(run);
}

void reset_page_allocator()
{
	at_next_page(nullptr);
}

} // namespace hosted

using namespace hosted;

unsigned long helper_get_zeroed_page(gfp_t gfp)
{
	if (gfp & __GFP_DIRECT_RECLAIM)
		might_sleep("__get_free_pages");
	run_at_page();
	if (should_fail("__get_free_pages"))
		return 0;
	page *p = allocate_block(0, page_use::allocated);
	if (!p)
		return 0;
	if constexpr (judging)
		judge_new_table(*p, 0);
	return reinterpret_cast<unsigned long>(std::memset(page_address(*p), 0, page_size));
}

void free_pages(unsigned long addr, unsigned int order)
{
	page *p = virt_to_page(reinterpret_cast<void *>(addr));
	if (!p || addr % page_size != 0 || order != 0)
		judge_stop("page allocator", "free of what is not a page");
	page_use use = page_use::allocated;
	if (!p->use.compare_exchange_strong(use, page_use::free))
		stop_free(use);
	release_block(*p, 0);
}
