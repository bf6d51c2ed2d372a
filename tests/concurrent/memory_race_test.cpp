// SPDX-License-Identifier: GPL-2.0-only
// The memory side under several threads at once, for the thread sanitizer to watch.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <set>
#include <vector>

#include <hosted/slab.h>
#include <hosted/vendor_hooks.h>
#include <hosted/vmalloc.h>
#include <kernel/stackdepot.h>

#include <tests/kernel/kernel_test.h>

using namespace hosted;
using namespace kernel_tests;

namespace
{

using memory_race_test = kernel_test;

void probe_for_a_while()
{
	tracepoint &hook = __tracepoint_android_vh_slab_free;
	auto *probe = reinterpret_cast<void *>(+[](void *data, unsigned long, kmem_cache *) {
		++*static_cast<std::atomic<int> *>(data);
	});
	for (int round = 0; round < 300; round++) {
		// freed once nobody can run the probe any more
		auto events = std::make_unique<std::atomic<int>>();
		ASSERT_EQ(tracepoint_probe_register(&hook, probe, events.get()), 0);
		std::this_thread::yield();
		tracepoint_probe_unregister(&hook, probe, events.get());
		helper_tracepoint_synchronize_unregister();
	}
}

TEST_F(memory_race_test, slab_objects_are_never_shared_while_probes_come_and_go)
{
	kmem_cache *cache = add_cache("shared", 256);
	std::thread prober(probe_for_a_while);
	on_threads(4, [&](unsigned id) {
		for (int round = 0; round < 300; round++) {
			std::vector<unsigned char *> mine;
			for (int i = 0; i < 60; i++) {
				void *object = allocate(*cache, GFP_KERNEL);
				std::memset(object, static_cast<int>(id), 256);
				mine.push_back(static_cast<unsigned char *>(object));
			}
			for (unsigned char *object : mine) {
				ASSERT_EQ(object[0], id);
				ASSERT_EQ(object[255], id);
				release(*cache, object);
			}
		}
	});
	prober.join();
}

TEST_F(memory_race_test, depot_gives_all_threads_the_same_handles)
{
	constexpr unsigned long stacks = 20000;
	ASSERT_EQ(stack_depot_init(), 0);
	std::vector<std::vector<depot_stack_handle_t>> handles(4);
	on_threads(4, [&](unsigned id) {
		for (unsigned long i = 0; i < stacks; i++) {
			unsigned long stack[] = {i, i / 2, i * 3};
			const unsigned depth = 1 + i % 3;
			handles[id].push_back(stack_depot_save(stack, depth, 0));
			unsigned long *entries = nullptr;
			ASSERT_EQ(stack_depot_fetch(handles[id].back(), &entries), depth);
			ASSERT_TRUE(std::equal(entries, entries + depth, stack));
		}
	});
	for (const auto &other : handles)
		EXPECT_EQ(other, handles[0]);
	const std::set<depot_stack_handle_t> distinct(handles[0].begin(), handles[0].end());
	EXPECT_EQ(distinct.size(), stacks);
	EXPECT_FALSE(distinct.contains(0));
}

TEST_F(memory_race_test, listing_while_areas_come_and_go)
{
	on_threads(3, [](unsigned id) {
		for (int i = 0; i < 200; i++) {
			if (id == 0) {
				ASSERT_LE(vmallocinfo().size(), 500U);
			} else {
				vm_struct *area = vmalloc_area(4096UL * (id + i % 3));
				*static_cast<unsigned *>(area_address(area)) = id;
				release_area(area);
			}
		}
	});
	EXPECT_EQ(vmalloc_nr_pages(), 0U);
}

} // namespace
