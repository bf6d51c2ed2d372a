// SPDX-License-Identifier: GPL-2.0-only
// The reports of CMA tracking, to the kernel log: a summary line, the records of an area with their
// stacks, and the pages where an allocation failed. Locks: see cma_track.h.
#include "cma_index.h"

#include <kernel/err.h>
#include <kernel/ratelimit.h>
#include <kernel/string.h>

#include "leak_notify.h"
#include "log.h"

namespace
{

// How many pages of a failed range are dumped, from where it stops being free.
constexpr unsigned long dumped_pages = 3;
// The allocator reports this if it tried no range.
constexpr unsigned long no_pfn = ~0UL;

constinit ratelimit_state listing_ratelimit = {};
constinit file_operations cma_show_fops = {};
constinit struct dentry *cma_debugfs_root = nullptr;

// Returns the area's next ranked record behind a place, with a reference taken, and moves the place
// there, or null at the end. Passes over other records, but never over many under the lock.
struct cma_stackinfo *get_next(cma_place &place, const char *name)
{
	for (;;) {
		const irqsave_guard guard(cma_lock);
		struct cma_stackinfo *info = cma_index_behind(place);

		if (!info)
			return nullptr;
		for (int i = 0; info && i < cma_records_at_once; i++) {
			place = cma_place_of(*info);
			if (cma_index_ranked(*info) &&
			    strncmp(info->name, name, CMA_MAX_NAME) == 0) {
				atomic_inc(&info->ref);
				return info;
			}
			info = cma_index_next(info);
		}
	}
}

void show_info(const struct cma_stackinfo &info)
{
	MEM_INFO("%s [%lu-%lu] count:%lu", info.name, info.start_pfn, info.end_pfn,
		 info.end_pfn - info.start_pfn + 1);
	if (!info.handle)
		return;

	unsigned long *entries = nullptr;
	const unsigned int count = stack_depot_fetch(info.handle, &entries);

	for (unsigned int i = 0; i < count; i++)
		MEM_INFO("        %pS", reinterpret_cast<void *>(entries[i]));
}

void show_cma_pages(unsigned long pfn, unsigned long count)
{
	unsigned long i = 0;

	if (pfn == no_pfn)
		return;
	while (i < count) {
		const struct page *page = helper_pfn_to_page(pfn + i);
		const unsigned long order = helper_page_buddy_order(page);

		// Tolerated race: this reads without the zone's lock. A block that is allocated
		// meanwhile can show any order; an impossible one ends the walk.
		if (!helper_page_is_buddy(page) || order > KERNEL_MAX_PAGE_ORDER)
			break;
		MEM_INFO("FreePage:[0x%lx-0x%lx]", pfn + i, pfn + i + (1UL << order) - 1);
		i += 1UL << order;
	}
	for (unsigned long n = 0; n < dumped_pages && i + n < count; n++)
		dump_page(helper_pfn_to_page(pfn + i + n), "cma_alloc fail");
}

int cma_show_get(void *data, u64 *val)
{
	const auto *name = static_cast<const char *>(data);

	show_brief(name, 0, 0);
	show_stackinfos(name, 0, 0);
	*val = 0;
	return 0;
}

int cma_show_fops_open(struct inode *inode, struct file *file)
{
	return simple_attr_open(inode, file, cma_show_get, nullptr, "%llu\n");
}

} // namespace

void show_brief(const char *name, unsigned long pfn, unsigned long count)
{
	const int index = find_cma_region(name);

	if (index == cma_region_count)
		return;

	const struct cma *area = cma_regions[index];
	const unsigned long base = helper_cma_base_pfn(area);
	const unsigned long pages = helper_cma_count(area);

	MEM_INFO("%s valid_pfn=[%lu-%lu] count:%lu used:%lu req:%lu lasttry-pfn:0x%lx", name, base,
		 base + pages - 1, pages, static_cast<unsigned long>(cma_used_bits(area)), count,
		 pfn);
}

void show_stackinfos(const char *name, unsigned long pfn, unsigned long count)
{
	cma_place place = cma_first_place;

	if (!name)
		return;
	{
		const irqsave_guard guard(cma_lock);

		cma_index_rank();
	}
	// Printing is slow, so it happens unlocked; the reference keeps the record. What is
	// allocated meanwhile is not ranked and waits for the next listing.
	while (struct cma_stackinfo *info = get_next(place, name)) {
		show_info(*info);

		const irqsave_guard guard(cma_lock);

		put_cma_stackinfo(info);
	}
	show_cma_pages(pfn, count);
}

void show_stackinfos_ratelimit(const char *name, unsigned long pfn, unsigned long count)
{
	show_brief(name, pfn, count);
	if (___ratelimit(&listing_ratelimit, __func__))
		show_stackinfos(name, pfn, count);
}

void cma_report_init(void)
{
	helper_ratelimit_state_init(&listing_ratelimit, leak_notify_interval, leak_notify_burst);
	helper_attribute_fops_init(&cma_show_fops, cma_show_fops_open);
}

void cma_report_create_files(void)
{
	cma_debugfs_root = debugfs_create_dir("tarn_cma", nullptr);
	for (int i = 0; i < cma_region_count; i++) {
		const char *name = helper_cma_name(cma_regions[i]);
		struct dentry *dir = debugfs_create_dir(name, cma_debugfs_root);

		debugfs_create_file("show", 0444, dir, const_cast<char *>(name), &cma_show_fops);
	}
}

void cma_report_remove_files(void)
{
	debugfs_remove(cma_debugfs_root);
	cma_debugfs_root = nullptr;
}
