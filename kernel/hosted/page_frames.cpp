// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/page_frames.h>

#include <mutex>
#include <new>
#include <span>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include <hosted/address_range.h>
#include <hosted/judge.h>

namespace hosted
{
namespace
{

constexpr unsigned long max_frames = 16UL << (30 - KERNEL_PAGE_SHIFT);

// One page structure a frame number, as an array, backed where there is memory.
page *memory_map()
{
	static page *const map =
		reinterpret_cast<page *>(reserve_range(max_frames * sizeof(page), access::open));
	return map;
}

struct added_frames {
	std::mutex lock;
	std::vector<std::span<page>> ranges;
};

added_frames &added()
{
	static added_frames instance;
	return instance;
}

bool is_present(unsigned long pfn)
{
	return pfn < max_frames && memory_map()[pfn].present.load(std::memory_order_relaxed);
}

page &first_of_block(unsigned long pfn)
{
	return page_at(pfn & ~(pageblock_pages - 1));
}

} // namespace

void add_frames(unsigned long first, unsigned long count)
{
	if (first % pageblock_pages || count % pageblock_pages || first > max_frames ||
	    count > max_frames - first)
		throw std::invalid_argument("frames that are no whole pageblocks below 16 GiB");
	const std::span pages(memory_map() + first, count);
	const std::lock_guard guard(added().lock);
	for (const page &p : pages)
		if (p.present)
			throw std::invalid_argument("frames that are there already");
	for (page &place : pages) {
		auto *p = new (&place) page;
		p->refcount = 0;
		p->migratetype = migrate_movable;
		p->present = true;
	}
	added().ranges.push_back(pages);
}

page &page_at(unsigned long pfn)
{
	if (!is_present(pfn))
		judge_stop("page frame", fmt::format("there is no frame {:#x}", pfn));
	return memory_map()[pfn];
}

void set_migratetype(unsigned long pfn, unsigned char type)
{
	first_of_block(pfn).migratetype.store(type, std::memory_order_relaxed);
}

void reset_frames()
{
	const std::lock_guard guard(added().lock);
	for (const std::span<page> pages : added().ranges)
		for (page &p : pages)
			p.present = false;
	added().ranges.clear();
}

} // namespace hosted

using namespace hosted;

const page *helper_pfn_to_page(unsigned long pfn)
{
	return &page_at(pfn);
}

unsigned long helper_page_to_pfn(const page *page)
{
	if (!page->present.load(std::memory_order_relaxed))
		judge_stop("page frame", "a page that is in no frame");
	return static_cast<unsigned long>(page - memory_map());
}

unsigned long helper_page_migratetype(const page *page)
{
	return first_of_block(helper_page_to_pfn(page)).migratetype.load(std::memory_order_relaxed);
}
