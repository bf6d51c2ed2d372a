// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/slab_pages.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include <hosted/address_range.h>

namespace hosted
{
namespace
{

// More than the machine's RAM, so that a leak can be simulated to any threshold.
constexpr std::size_t arena_pages = std::size_t{4} << (30 - 12);

struct page_owner {
	slab *on;
};

struct arena {
	unsigned char *const base = reserve_range(arena_pages * page_size, access::open);
	page_owner *const owners = reinterpret_cast<page_owner *>(
		reserve_range(arena_pages * sizeof(page_owner), access::open)); // by page
	std::mutex lock;
	std::size_t used = 0;						    // pages, from the base
	std::array<std::vector<unsigned char *>, max_page_order + 1> freed; // by order
};

arena &pages()
{
	// never destroyed: slab objects may outlive every destructor of the program
	static arena &instance = *new arena;
	return instance;
}

std::size_t page_number(const arena &a, const void *address)
{
	return (reinterpret_cast<std::uintptr_t>(address) -
		reinterpret_cast<std::uintptr_t>(a.base)) /
	       page_size;
}

void set_owner(const arena &a, const unsigned char *block, unsigned order, slab *owner)
{
	const std::size_t first = page_number(a, block);
	for (std::size_t i = first; i < first + (std::size_t{1} << order); i++)
		std::atomic_ref(a.owners[i].on).store(owner, std::memory_order_release);
}

// Under the arena's lock.
unsigned char *find_block(arena &a, unsigned order)
{
	if (auto &freed = a.freed[order]; !freed.empty()) {
		unsigned char *block = freed.back();
		freed.pop_back();
		return block;
	}
	const std::size_t count = std::size_t{1} << order;
	if (a.used + count > arena_pages)
		return nullptr;
	unsigned char *block = a.base + a.used * page_size;
	a.used += count;
	return block;
}

} // namespace

unsigned char *allocate_pages(unsigned order, slab *owner)
{
	arena &a = pages();
	const std::lock_guard guard(a.lock);
	unsigned char *block = find_block(a, order);
	if (block)
		set_owner(a, block, order, owner);
	return block;
}

void free_pages(unsigned char *block, unsigned order)
{
	arena &a = pages();
	const std::lock_guard guard(a.lock);
	set_owner(a, block, order, nullptr);
	a.freed[order].push_back(block);
}

slab *slab_at(const void *address)
{
	const arena &a = pages();
	// an address below the arena wraps to a number far above it
	const std::size_t page = page_number(a, address);
	if (page >= arena_pages)
		return nullptr;
	return std::atomic_ref(a.owners[page].on).load(std::memory_order_acquire);
}

} // namespace hosted
