// SPDX-License-Identifier: GPL-2.0-only
// Slab caches, vmalloc areas and tracepoints.
#include <cstring>
#include <set>

#include <hosted/slab.h>
#include <hosted/vendor_hooks.h>
#include <hosted/vmalloc.h>
#include <kernel/notifier.h>
#include <kernel/vmstat.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

using slab = kernel_test;
using slab_death = kernel_test;

slabinfo info_of(kmem_cache *cache)
{
	slabinfo info;
	get_slabinfo(cache, &info);
	return info;
}

TEST_F(slab, objects_are_distinct_and_slabs_go_back)
{
	const auto &pages = vm_node_stat[KERNEL_NR_SLAB_UNRECLAIMABLE_B].counter;
	const long before = pages;
	kmem_cache *cache = add_cache("inode_cache", 600);
	const unsigned per_slab = info_of(cache).objects_per_slab;
	const long pages_per_slab = 1L << info_of(cache).cache_order;
	std::set<unsigned char *> objects;
	for (unsigned i = 0; i < per_slab * 20; i++) {
		auto *object = static_cast<unsigned char *>(allocate(*cache, GFP_KERNEL));
		std::memset(object, int(i), 600);
		objects.insert(object);
	}
	ASSERT_EQ(objects.size(), per_slab * 20);
	for (auto a = objects.begin(), b = std::next(a); b != objects.end(); a = b++)
		ASSERT_GE(*b - *a, 600);
	EXPECT_EQ(info_of(cache).active_objs, per_slab * 20);
	EXPECT_EQ(info_of(cache).num_slabs, 20U);
	EXPECT_EQ(pages, before + 20 * pages_per_slab);
	EXPECT_EQ(footprint(*cache), 20UL * per_slab * 600);

	for (unsigned char *object : objects)
		release(*cache, object);
	EXPECT_EQ(info_of(cache).active_objs, 0U);
	EXPECT_EQ(info_of(cache).num_slabs, 5U) << "a cache keeps a few empty slabs";
	EXPECT_EQ(pages, before + 5 * pages_per_slab);
	remove_cache(cache);
	EXPECT_EQ(pages, before);
}

TEST_F(slab, caches_of_equal_objects_are_one_unless_kept_apart)
{
	kmem_cache *first = add_cache("first", 72, 0);
	kmem_cache *second = helper_kmem_cache_create("second", 70, 0, 0, nullptr);
	EXPECT_EQ(second, first);
	EXPECT_STREQ(helper_kmem_cache_name(second), "first");
	EXPECT_EQ(find_cache("second"), nullptr);
	for (kmem_cache *own :
	     {add_cache("own", 72), add_cache("other flags", 72, SLAB_RECLAIM_ACCOUNT),
	      add_cache("smaller", 64, 0), add_cache("larger", 80, 0)})
		EXPECT_NE(own, first);

	// It lives as long as one of its users.
	void *object = allocate(*second, GFP_KERNEL);
	remove_cache(first);
	EXPECT_EQ(find_cache("first"), second);
	EXPECT_DEATH(reset_slab(), "cache first is left");
	EXPECT_DEATH(kmem_cache_destroy(second), "cache first destroyed with 1 object");
	release(*second, object);
	kmem_cache_destroy(second);
	EXPECT_EQ(find_cache("first"), nullptr);
}

TEST_F(slab_death, misuse_stops)
{
	kmem_cache *cache = add_cache("one", 64);
	kmem_cache *other = helper_kmem_cache_create("two", 64, 0, 0, nullptr);
	auto *object = static_cast<unsigned char *>(allocate(*cache, GFP_KERNEL));
	EXPECT_DEATH(kmem_cache_free(other, object), "into two: it belongs to one");
	EXPECT_DEATH(kmem_cache_free(cache, object + 8), "not the start of an object");
	EXPECT_DEATH(kmem_cache_destroy(cache), "destroyed with 1 object");
	kmem_cache_free(cache, object);
	EXPECT_DEATH(kmem_cache_free(cache, object), "double free into one");
	// AddressSanitizer cannot report in a process that has unloaded a module.
	GTEST_FLAG_SET(death_test_style, "threadsafe");
	EXPECT_DEATH(
		{
			*static_cast<volatile unsigned char *>(object) = 0;
			allocate(*cache, GFP_KERNEL);
		},
		"use.after.(free|poison)");
	EXPECT_DEATH(reset_slab(), "cache two is left");
	kmem_cache_destroy(other);
	list_head *head = slab_caches();
	EXPECT_DEATH(helper_kmem_cache_set_flags(cache, 1), "flags without the slab mutex");
	const mutex_guard guard(slab_mutex());
	EXPECT_EQ(helper_kmem_cache_of(head->next), cache);
	EXPECT_DEATH(helper_kmem_cache_of(head), "head of the list");
}

using tracepoints = kernel_test;

TEST_F(tracepoints, probes_run_in_order_until_they_are_unregistered)
{
	using orders = std::vector<unsigned>;
	auto *probe = reinterpret_cast<void *>(+[](void *data, unsigned order) {
		static_cast<orders *>(data)->push_back(order);
		EXPECT_EQ(self().preempt_count, 1);
	});
	tracepoint &hook = __tracepoint_android_vh_mm_direct_reclaim_enter;
	orders first;
	orders second;
	tracepoint_probe_register(&hook, probe, &first);
	tracepoint_probe_register(&hook, probe, &second);
	trace_android_vh_mm_direct_reclaim_enter(3);
	tracepoint_probe_unregister(&hook, probe, &first);
	trace_android_vh_mm_direct_reclaim_enter(4);
	tracepoint_probe_unregister(&hook, probe, &second);
	trace_android_vh_mm_direct_reclaim_enter(5);
	EXPECT_EQ(first, orders{3});
	EXPECT_EQ(second, (orders{3, 4}));
}

class vmalloc : public kernel_test
{
protected:
	static int on_purge(notifier_block *nb, unsigned long, void *data)
	{
		called.push_back(nb->priority);
		if (to_release) {
			*static_cast<unsigned long *>(data) +=
				helper_vm_struct_nr_pages(to_release);
			release_area(std::exchange(to_release, nullptr));
		}
		return 0;
	}

	static inline std::vector<int> called;
	static inline vm_struct *to_release;
};
using vmalloc_death = vmalloc;

TEST_F(vmalloc, a_full_address_space_calls_the_chain_by_priority_and_tries_once_more)
{
	notifier_block blocks[] = {
		{on_purge, nullptr, 0}, {on_purge, nullptr, 7}, {on_purge, nullptr, 0}};
	for (notifier_block &nb : blocks)
		register_vmap_purge_notifier(&nb);
	set_vmalloc_space(10);
	vm_struct *first = vmalloc_area(4 * 4096);
	ASSERT_TRUE(vmalloc_area(4 * 4096)) << "two areas of four pages and a guard page each";
	EXPECT_TRUE(called.empty());
	EXPECT_FALSE(vmalloc_area(1));
	EXPECT_EQ(called, (std::vector<int>{7, 0, 0}));

	const void *hole = area_address(first);
	to_release = first;
	vm_struct *third = vmalloc_area(4 * 4096);
	ASSERT_TRUE(third);
	EXPECT_EQ(area_address(third), hole);
	EXPECT_EQ(called.size(), 6U);
	for (notifier_block &nb : blocks)
		unregister_vmap_purge_notifier(&nb);
}

TEST_F(vmalloc_death, areas_are_zeroed_counted_and_guarded)
{
	auto *a = static_cast<unsigned char *>(helper_vzalloc(8192));
	for (int i = 0; i < 8192; i++)
		ASSERT_EQ(a[i]++, 0);
	set_vmalloc_base(1000);
	EXPECT_EQ(vmalloc_nr_pages(), 1002U);
	const frame_scope caller(symbol_address("load_module", 0x10, 0x20));
	vmalloc_area(300 * 4096);
	EXPECT_THAT(
		vmallocinfo(),
		testing::MatchesRegex("0x[0-9a-f]{16}-0x[0-9a-f]{16}   12288 .*\n"
				      "0x.* 1232896 load_module\\+0x10/0x20 pages=300 vmalloc\n"));
	EXPECT_FALSE(helper_vmalloc(0));
	EXPECT_DEATH(*const_cast<volatile unsigned char *>(a + 8192) = 1, "") << "the guard page";
	EXPECT_DEATH(vfree(a + 1), "no area is there");
	EXPECT_DEATH(reset_vmalloc(), "area is left");
	vfree(a);
	EXPECT_EQ(vmalloc_nr_pages(), 1300U);
	EXPECT_DEATH(vfree(a), "no area is there");
	EXPECT_DEATH(*const_cast<volatile unsigned char *>(a) = 1, "") << "freed memory";
}

} // namespace
