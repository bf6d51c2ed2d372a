// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/vmalloc.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include <hosted/engine/address_range.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/notifier.h>
#include <hosted/seq_file.h>
#include <hosted/vendor_hooks.h>

struct vm_struct {
	unsigned long first_page; // of the address space
	unsigned long caller;
	unsigned long size; // including the guard page
	unsigned nr_pages;  // 0 until the area has its memory
	bool of_module;
};

namespace hosted
{
namespace
{

constexpr unsigned long default_space = 16UL << (30 - KERNEL_PAGE_SHIFT);

// The flags of an area made by vmalloc.
constexpr unsigned long vm_alloc = 2;

enum class owner { kernel, module };

using area_map = std::map<unsigned long, std::unique_ptr<vm_struct>>;

struct vmap_space {
	unsigned char *const base = reserve_range(default_space * page_size, access::closed);
	std::mutex lock;
	unsigned long pages = default_space;
	area_map areas; // by first page
};

vmap_space &space()
{
	static vmap_space instance;
	return instance;
}

constinit std::atomic<unsigned long> nr_pages{0};
constinit std::atomic<unsigned long> nr_pages_base{0};

unsigned long pages_of(const vm_struct &area)
{
	return area.size / page_size;
}

unsigned char *address_of(const vm_struct &area)
{
	return space().base + area.first_page * page_size;
}

std::vector<std::string> report()
{
	vmap_space &s = space();
	const std::lock_guard guard(s.lock);
	std::vector<std::string> lines;
	for (const auto &[page, area] : s.areas)
		if (area->of_module)
			lines.push_back(
				fmt::format("vmalloc area of {} bytes", area->size - page_size));
	return lines;
}

const leftover_source source(report);

// Finds the first hole that is large enough. Called under the lock.
std::optional<unsigned long> find_hole(const vmap_space &s, unsigned long pages)
{
	unsigned long hole = 0;
	for (const auto &[page, area] : s.areas) {
		if (page - hole >= pages)
			break;
		hole = page + pages_of(*area);
	}
	if (hole + pages > s.pages)
		return std::nullopt;
	return hole;
}

vm_struct *insert_area(const vm_struct &wanted)
{
	vmap_space &s = space();
	const std::lock_guard guard(s.lock);
	const std::optional<unsigned long> hole = find_hole(s, pages_of(wanted));
	if (!hole)
		return nullptr;
	auto area = std::make_unique<vm_struct>(wanted);
	area->first_page = *hole;
	return (s.areas[*hole] = std::move(area)).get();
}

vm_struct *get_area(unsigned long pages, unsigned long caller, owner who)
{
	const vm_struct wanted{.first_page = 0,
			       .caller = caller,
			       .size = (pages + 1) * page_size,
			       .nr_pages = 0,
			       .of_module = who == owner::module};
	vm_struct *area = insert_area(wanted);
	if (!area && call_vmap_purge_chain() > 0)
		area = insert_area(wanted);
	if (area && in_use(__tracepoint_android_vh_save_vmalloc_stack)) {
		static const std::array frames{
			symbol_address("__get_vm_area_node", 0x120, 0x1a0),
			symbol_address("__vmalloc_node_range", 0xa8, 0x6e0),
		};
		const frame_scope scope(frames);
		trace_android_vh_save_vmalloc_stack(vm_alloc, area);
	}
	return area;
}

vm_struct *allocate_area(const char *call, unsigned long size, owner who)
{
	might_sleep(call);
	if (should_fail(call))
		return nullptr;
	const unsigned long pages = size / page_size + (size % page_size != 0);
	if (pages == 0 || pages >= default_space)
		return nullptr;
	vm_struct *area = get_area(pages, caller_address(), who);
	if (!area)
		return nullptr;
	open_pages(address_of(*area), pages * page_size);
	nr_pages.fetch_add(pages, std::memory_order_relaxed);
	// from here on it shows in the listing
	const std::lock_guard guard(space().lock);
	area->nr_pages = static_cast<unsigned>(pages);
	return area;
}

// Under the lock.
area_map::iterator find_area(vmap_space &s, const void *address)
{
	const unsigned long offset =
		reinterpret_cast<unsigned long>(address) - reinterpret_cast<unsigned long>(s.base);
	return offset % page_size == 0 ? s.areas.find(offset / page_size) : s.areas.end();
}

void free_area(const void *address)
{
	vmap_space &s = space();
	const std::lock_guard guard(s.lock);
	const auto found = find_area(s, address);
	if (found == s.areas.end())
		judge_stop("vmalloc", fmt::format("vfree of {}: no area is there", address));
	const vm_struct &area = *found->second;
	nr_pages.fetch_sub(area.nr_pages, std::memory_order_relaxed);
	close_pages(address_of(area), area.nr_pages * page_size);
	s.areas.erase(found);
}

} // namespace

vm_struct *vmalloc_area(unsigned long size)
{
	return allocate_area("vmalloc", size, owner::kernel);
}

void release_area(vm_struct *area)
{
	vfree(address_of(*area));
}

vm_struct *find_vm_area(const void *address)
{
	vmap_space &s = space();
	const std::lock_guard guard(s.lock);
	const auto found = find_area(s, address);
	return found == s.areas.end() ? nullptr : found->second.get();
}

void *area_address(const vm_struct *area)
{
	return address_of(*area);
}

void set_vmalloc_space(unsigned long pages)
{
	if (pages > default_space)
		judge_stop("vmalloc", "more address space than was reserved");
	vmap_space &s = space();
	const std::lock_guard guard(s.lock);
	s.pages = pages;
}

void set_vmalloc_base(unsigned long pages)
{
	nr_pages_base.store(pages, std::memory_order_relaxed);
}

std::string vmallocinfo()
{
	might_sleep("vmallocinfo");
	vmap_space &s = space();
	seq_file listing;
	const std::lock_guard guard(s.lock);
	for (const auto &[page, area] : s.areas) {
		if (area->nr_pages == 0)
			continue;
		const auto start = reinterpret_cast<unsigned long>(address_of(*area));
		seq_printf(&listing, "0x%016lx-0x%016lx %7ld", start, start + area->size,
			   static_cast<long>(area->size));
		if (area->caller)
			seq_printf(&listing, " %pS", reinterpret_cast<void *>(area->caller));
		seq_printf(&listing, " pages=%u vmalloc", area->nr_pages);
		trace_android_vh_show_stack_hash(&listing, area.get());
		seq_putc(&listing, '\n');
	}
	return std::move(listing.text);
}

void reset_vmalloc()
{
	vmap_space &s = space();
	{
		const std::lock_guard guard(s.lock);
		for (const auto &[page, area] : s.areas) {
			if (area->of_module)
				judge_stop("vmalloc", "an area is left at reset");
			close_pages(address_of(*area), area->nr_pages * page_size);
		}
		s.areas.clear();
	}
	nr_pages.store(0, std::memory_order_relaxed);
	set_vmalloc_base(0);
	set_vmalloc_space(default_space);
}

} // namespace hosted

using namespace hosted;

unsigned long vmalloc_nr_pages()
{
	return nr_pages.load(std::memory_order_relaxed) +
	       nr_pages_base.load(std::memory_order_relaxed);
}

void *helper_vmalloc(unsigned long size)
{
	vm_struct *area = allocate_area("vmalloc", size, owner::module);
	return area ? address_of(*area) : nullptr;
}

// New pages are zero already.
void *helper_vzalloc(unsigned long size)
{
	vm_struct *area = allocate_area("vzalloc", size, owner::module);
	return area ? address_of(*area) : nullptr;
}

void vfree(const void *addr)
{
	might_sleep("vfree");
	if (addr)
		free_area(addr);
}

unsigned long helper_vm_struct_caller(const vm_struct *area)
{
	return area->caller;
}

void helper_vm_struct_set_caller(vm_struct *area, unsigned long caller)
{
	area->caller = caller;
}

unsigned long helper_vm_struct_size(const vm_struct *area)
{
	return area->size;
}

unsigned int helper_vm_struct_nr_pages(const vm_struct *area)
{
	return area->nr_pages;
}
