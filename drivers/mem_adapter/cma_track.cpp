// SPDX-License-Identifier: GPL-2.0-only
// Tracks who allocates from the CMA areas: two probes on the kernel's tracepoints keep one record
// per range and warn once when the target area fills up. Locks: see cma_track.h.
#include "cma_track.h"

#include <kernel/bitmap.h>
#include <kernel/gfp.h>
#include <kernel/rcupdate.h>
#include <kernel/slab.h>
#include <kernel/stacktrace.h>
#include <kernel/string.h>
#include <kernel/tracepoint.h>

#include "cma_index.h"
#include "depot.h"
#include "log.h"
#include "subsystems.h"
#include "vendor_hook.h"

constinit raw_spinlock_t cma_lock = {};
constinit struct list_head cmainfolist = {&cmainfolist, &cmainfolist};

constinit int cma_show_backtrace = 0;
constinit unsigned int cma_unrecorded = 0;
constinit int cma_warn_limit_permillage = 850;
constinit char cma_default_target[] = "linux,cma";
constinit char *cma_target = cma_default_target;

constinit struct cma *cma_regions[max_cma_regions] = {};
constinit int cma_region_count = 0;

namespace
{

constexpr unsigned int stack_depth = 11;
// get_track_stack_handle, the probe, and the function that fired the tracepoint. There is no frame
// of the tracepoint itself: the kernel calls a tracepoint's only probe directly.
constexpr unsigned int own_frames = 3;

// Memory is short when CMA is in demand; a failure costs one record and is not worth a stack dump.
constexpr gfp_t record_gfp = GFP_NOWAIT | __GFP_NOWARN;

constinit lock_class_key cma_lock_key = {};
constinit vendor_hook<cma_alloc_finish_probe> alloc_hook;
constinit vendor_hook<cma_release_probe> release_hook;

// The index of cma_target's area at the last check, or cma_region_count for none, and whether the
// warning about it was printed. Tolerated race: read and written without a lock, so two checks at
// the same time may warn twice.
constinit int cma_target_index = 0;
constinit bool print_it = false;

int get_cma_regions(struct cma *area, void *)
{
	if (cma_region_count == max_cma_regions) {
		MEM_ERR("%s is left out, the table has %d areas\n", helper_cma_name(area),
			max_cma_regions);
		return 0;
	}

	const rcu_read_guard rcu;
	const char *target = rcu_dereference(cma_target);

	if (target && strcmp(helper_cma_name(area), target) == 0)
		cma_target_index = cma_region_count;
	cma_regions[cma_region_count++] = area;
	return 0;
}

// Not inlined: own_frames counts it.
[[gnu::noinline]] depot_stack_handle_t get_track_stack_handle()
{
	unsigned long entries[stack_depth];
	const unsigned int count = stack_trace_save(entries, stack_depth, own_frames);

	if (READ_ONCE(cma_show_backtrace)) {
		for (unsigned int i = 0; i < count; i++)
			MEM_INFO("        %pS", reinterpret_cast<void *>(entries[i]));
	}
	return depot_save(entries, count, GFP_NOWAIT);
}

[[gnu::always_inline]] inline void add_cma_stackinfo(const char *name, unsigned long pfn,
						     unsigned long count)
{
	auto *info =
		static_cast<cma_stackinfo *>(helper_kzalloc(sizeof(cma_stackinfo), record_gfp));

	if (!info) {
		__atomic_fetch_add(&cma_unrecorded, 1, __ATOMIC_RELAXED);
		return;
	}
	memcpy(info->name, name, CMA_MAX_NAME);
	info->start_pfn = pfn;
	info->end_pfn = pfn + count - 1;
	info->handle = get_track_stack_handle();
	atomic_set(&info->ref, 1);
	{
		const irqsave_guard guard(cma_lock);

		list_add(&info->node, &cmainfolist);
		cma_index_add(info);
	}
	if (READ_ONCE(cma_show_backtrace))
		MEM_INFO("%s [%lu-%lu] add", name, pfn, pfn + count - 1);
}

// The area that target names; null if there is none. A target other than the one of the last check
// re-arms the warning.
const struct cma *find_target(const char *target)
{
	int index = READ_ONCE(cma_target_index);

	if (index == cma_region_count || strcmp(helper_cma_name(cma_regions[index]), target) != 0) {
		WRITE_ONCE(print_it, false);
		index = find_cma_region(target);
		WRITE_ONCE(cma_target_index, index);
	}
	return index < cma_region_count ? cma_regions[index] : nullptr;
}

// Counted in bits of the area's bitmap. A limit below 0 is never reached.
bool exceeds(const struct cma *area, int permillage)
{
	const u64 bits = helper_cma_count(area) >> helper_cma_order_per_bit(area);

	return cma_used_bits(area) > (bits >> 10) * static_cast<u64>(s64{permillage});
}

void cma_show_when_exceed(const char *target)
{
	const struct cma *area = find_target(target);
	const int permillage = READ_ONCE(cma_warn_limit_permillage);

	if (!area || READ_ONCE(print_it) || !exceeds(area, permillage))
		return;
	MEM_INFO("cma warn %s has been used exceed %d/1024", target, permillage);
	show_stackinfos_ratelimit(target, 0, 0);
	WRITE_ONCE(print_it, true);
}

// Frees some of the records. Returns whether there are more.
bool free_some_records()
{
	const irqsave_guard guard(cma_lock);

	for (int i = 0; i < cma_records_at_once && cmainfolist.next != &cmainfolist; i++)
		put_cma_stackinfo(cma_stackinfo_of(cmainfolist.next));
	return cmainfolist.next != &cmainfolist;
}

void free_records()
{
	{
		const irqsave_guard guard(cma_lock);

		cma_index_clear();
	}
	while (free_some_records())
		;
}

} // namespace

int find_cma_region(const char *name)
{
	for (int i = 0; i < cma_region_count; i++) {
		if (strcmp(helper_cma_name(cma_regions[i]), name) == 0)
			return i;
	}
	return cma_region_count;
}

unsigned int cma_used_bits(const struct cma *area)
{
	return __bitmap_weight(helper_cma_bitmap(area),
			       helper_cma_count(area) >> helper_cma_order_per_bit(area));
}

void put_cma_stackinfo(struct cma_stackinfo *info)
{
	if (!atomic_dec_and_test(&info->ref))
		return;
	list_del(&info->node);
	kfree(info);
}

void vh_cma_alloc(void *, const char *name, unsigned long pfn, const struct page *,
		  unsigned long count, unsigned int, int errorno)
{
	if (!name)
		return;
	if (errorno) {
		MEM_INFO("detect cma_alloc fail, ret=%d", errorno);
		show_stackinfos_ratelimit(name, pfn, count);
		return;
	}
	add_cma_stackinfo(name, pfn, count);

	const char *target = rcu_dereference(cma_target);

	if (target && strcmp(name, target) == 0)
		cma_show_when_exceed(target);
}

void vh_cma_release(void *, const char *name, unsigned long pfn, const struct page *,
		    unsigned long count)
{
	const unsigned long end = pfn + count - 1;

	if (!name)
		return;

	const irqsave_guard guard(cma_lock);

	if (READ_ONCE(cma_show_backtrace)) {
		get_track_stack_handle();
		MEM_LOG(KERN_INFO, "__check_and_del", "%s [%lu-%lu] del", name, pfn, end);
	}

	// Tolerated race: if someone takes exactly this range before its release is reported, the
	// newer of two equal records goes and the range stays listed under its former owner.
	struct cma_stackinfo *info = cma_index_find(name, pfn, end);

	if (!info)
		return;
	if (info->start_pfn != pfn && info->end_pfn != end && READ_ONCE(cma_show_backtrace))
		MEM_LOG(KERN_INFO, "__check_and_del", "[%lu-%lu] overlaps existed [%lu, %lu]", pfn,
			end, info->start_pfn, info->end_pfn);
	// The neighbours in the list are anywhere in memory; fetch them while the index changes.
	__builtin_prefetch(info->node.next);
	__builtin_prefetch(info->node.prev);
	cma_index_remove(info);
	put_cma_stackinfo(info);
}

int cma_track_init(void)
{
	helper_raw_spin_lock_init(&cma_lock, "cma_lock", &cma_lock_key);
	cma_report_init();
	depot_set_up("cma_track_init");
	cma_for_each_area(get_cma_regions, nullptr);

	int ret = alloc_hook.attach(helper_find_cma_alloc_finish(), vh_cma_alloc);

	ret |= release_hook.attach(helper_find_cma_release(), vh_cma_release);
	cma_report_create_files();
	return ret;
}

void cma_track_exit(void)
{
	cma_report_remove_files();
	release_hook.detach();
	alloc_hook.detach();
	// Wait for running probes, which may still add to the list.
	helper_tracepoint_synchronize_unregister();
	free_records();
}
