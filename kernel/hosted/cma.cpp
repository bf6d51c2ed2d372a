// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/cma.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include <hosted/core_tracepoints.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/pins.h>

struct cma {
	unsigned long base_pfn;
	unsigned long count;
	unsigned order_per_bit;
	std::array<char, CMA_MAX_NAME> name{};
	std::mutex lock{};
	std::vector<unsigned long> bitmap{}; // written under the lock, read without
};

namespace hosted
{
namespace
{

constexpr unsigned word_bits = sizeof(long) * CHAR_BIT;
constexpr unsigned long no_pfn = ~0UL;

// Filled only while the machine is being set up.
std::vector<std::unique_ptr<cma>> &areas()
{
	static std::vector<std::unique_ptr<cma>> instance;
	return instance;
}

unsigned long bits_of(const cma &area)
{
	return area.count >> area.order_per_bit;
}

unsigned long bits_for(const cma &area, unsigned long pages)
{
	return (pages + (1UL << area.order_per_bit) - 1) >> area.order_per_bit;
}

// Called under the area's lock, like every function here that takes a bit's number.
void change(cma &area, unsigned long bit, unsigned long bits, bool set)
{
	for (const unsigned long end = bit + bits; bit < end;) {
		const unsigned long in_word = bit % word_bits;
		const unsigned long here = std::min(word_bits - in_word, end - bit);
		const unsigned long mask = (~0UL >> (word_bits - here)) << in_word;
		unsigned long &word = area.bitmap[bit / word_bits];
		WRITE_ONCE(word, set ? word | mask : word & ~mask);
		bit += here;
	}
}

// The first bit at or after bit that is set, or clear; the area's end if there is none.
unsigned long find_bit(const cma &area, unsigned long bit, bool set)
{
	const unsigned long end = bits_of(area);
	while (bit < end) {
		const unsigned long word = area.bitmap[bit / word_bits];
		const unsigned long rest = (set ? word : ~word) >> bit % word_bits;
		if (rest != 0)
			return std::min<unsigned long>(bit + std::countr_zero(rest), end);
		bit = (bit / word_bits + 1) * word_bits;
	}
	return end;
}

// The first run of clear bits whose pages are aligned; the area's end if there is none.
unsigned long find_clear_run(const cma &area, unsigned long from, unsigned long bits,
			     unsigned long align_mask, unsigned long offset)
{
	const unsigned long end = bits_of(area);
	for (;;) {
		from = find_bit(area, from, false);
		from = ((from + offset + align_mask) & ~align_mask) - offset;
		if (from + bits > end)
			return end;
		const unsigned long taken = find_bit(area, from, true);
		if (taken >= from + bits)
			return from;
		from = taken + 1;
	}
}

unsigned long reserve(cma &area, unsigned long from, unsigned long bits, unsigned long align_mask,
		      unsigned long offset)
{
	const std::lock_guard guard(area.lock);
	const unsigned long bit = find_clear_run(area, from, bits, align_mask, offset);
	if (bit < bits_of(area))
		change(area, bit, bits, true);
	return bit;
}

void clear(cma &area, unsigned long pfn, unsigned long count)
{
	const std::lock_guard guard(area.lock);
	change(area, (pfn - area.base_pfn) >> area.order_per_bit, bits_for(area, count), false);
}

// Takes all pages of the range away from their users, or none.
int take_range(unsigned long pfn, unsigned long count)
{
	if (should_fail("alloc_contig_range"))
		return -ENOMEM;
	for (unsigned long i = 0; i < count; i++)
		if (is_pinned(page_at(pfn + i)))
			return -EBUSY;
	for (unsigned long i = 0; i < count; i++) {
		page &p = page_at(pfn + i);
		unpoison_page(p);
		p.buddy.store(false, std::memory_order_relaxed);
		p.refcount.store(1, std::memory_order_relaxed);
		p.use.store(page_use::contiguous, std::memory_order_release);
	}
	return 0;
}

// Drops the driver's reference. A page that is pinned stays in use.
void give_back(page &p)
{
	page_use use = page_use::contiguous;
	if (!p.use.compare_exchange_strong(use, page_use::cma))
		judge_stop("cma", fmt::format("release of page {:#x}, which is not allocated",
					      page_to_pfn(p)));
	if (p.refcount.fetch_sub(1, std::memory_order_acq_rel) == 1)
		poison_page(p);
}

cma &add_area(std::string_view name, unsigned long base_pfn, unsigned long pages,
	      unsigned order_per_bit)
{
	if (areas().size() == max_cma_areas)
		throw std::invalid_argument("too many CMA areas");
	auto area = std::unique_ptr<cma>(new cma{base_pfn, pages, order_per_bit});
	std::ranges::copy(name.substr(0, CMA_MAX_NAME - 1), area->name.begin());
	area->bitmap.resize((bits_of(*area) + word_bits - 1) / word_bits);
	return *areas().emplace_back(std::move(area));
}

} // namespace

cma &add_cma_area(std::string_view name, unsigned long base_pfn, unsigned long pages,
		  unsigned order_per_bit)
{
	if (pages == 0 || pages % (1UL << order_per_bit))
		throw std::invalid_argument("a CMA area that is not whole chunks");
	add_frames(base_pfn, pages, page_use::cma);
	for (unsigned long pfn = base_pfn; pfn < base_pfn + pages; pfn += pageblock_pages)
		set_migratetype(pfn, KERNEL_MIGRATE_CMA);
	return add_area(name, base_pfn, pages, order_per_bit);
}

cma &add_failed_cma_area(std::string_view name, unsigned long base_pfn)
{
	return add_area(name, base_pfn, 0, 0);
}

page *cma_alloc(cma &area, unsigned long count, unsigned align)
{
	might_sleep("cma_alloc");
	const unsigned long bits = bits_for(area, count);
	if (count == 0 || bits > bits_of(area))
		return nullptr; // the kernel fires no tracepoint for these
	const unsigned long align_pages = 1UL << std::max(align, area.order_per_bit);
	const unsigned long mask = (align_pages >> area.order_per_bit) - 1;
	const unsigned long offset = (area.base_pfn & ((1UL << align) - 1)) >> area.order_per_bit;
	static const unsigned long here = symbol_address("cma_alloc", 0x1e8, 0x2d0);
	const frame_scope frame(here);

	int error = -ENOMEM;
	unsigned long pfn = no_pfn;
	for (unsigned long from = 0;;) {
		const unsigned long bit = reserve(area, from, bits, mask, offset);
		if (bit >= bits_of(area))
			break;
		pfn = area.base_pfn + (bit << area.order_per_bit);
		error = take_range(pfn, count);
		if (error == 0)
			break;
		clear(area, pfn, count);
		if (error != -EBUSY)
			break;
		from = bit + mask + 1;
	}
	page *pages = error == 0 ? &page_at(pfn) : nullptr;
	trace_cma_alloc_finish(area.name.data(), pfn, pages, count, align, error);
	return pages;
}

bool cma_release(cma &area, const page *pages, unsigned long count)
{
	const unsigned long pfn = helper_page_to_pfn(pages);
	if (pfn < area.base_pfn || pfn >= area.base_pfn + area.count)
		return false;
	if (count > area.base_pfn + area.count - pfn)
		judge_stop("cma",
			   fmt::format("release of {} pages at {:#x}, which end outside of {}",
				       count, pfn, area.name.data()));
	static const unsigned long here = symbol_address("cma_release", 0x94, 0x140);
	const frame_scope frame(here);

	for (unsigned long i = 0; i < count; i++)
		give_back(page_at(pfn + i));
	clear(area, pfn, count);
	trace_cma_release(area.name.data(), pfn, pages, count);
	return true;
}

void reset_cma()
{
	areas().clear();
}

} // namespace hosted

using namespace hosted;

int cma_for_each_area(int (*it)(cma *area, void *data), void *data)
{
	might_sleep("cma_for_each_area");
	for (const auto &area : areas())
		if (const int result = it(area.get(), data))
			return result;
	return 0;
}

unsigned long helper_cma_base_pfn(const cma *area)
{
	return area->base_pfn;
}

unsigned long helper_cma_count(const cma *area)
{
	return area->count;
}

const unsigned long *helper_cma_bitmap(const cma *area)
{
	return area->bitmap.data();
}

unsigned int helper_cma_order_per_bit(const cma *area)
{
	return area->order_per_bit;
}

const char *helper_cma_name(const cma *area)
{
	return area->name.data();
}
