// SPDX-License-Identifier: GPL-2.0-only
#include "trace_testing.h"

namespace tarn::trace
{

namespace
{

TEST(trace_stack, starts_at_the_call_site_and_belongs_to_its_cpu)
{
	// Both events come before both stacks, and the stacks in the other order.
	const loaded t(temp_file(
		line(0, alloc("open+0x80/0x190 [vfs]", p1)) + line(1, kmalloc(p2, 64)) +
		stack(1, {"__traceiter_kmalloc", "__kmalloc_cache_noprof", "make", "b", "c"}) +
		stack(0, {"kmem_cache_alloc", "open", "path+0x10/0x20 [vfs]",
			  "call+0x1/0x2 <ffffffc008001234>", "open", "e", "f", "g", "h", "i"})));
	ASSERT_EQ(t.events.size(), 2U);
	EXPECT_EQ(t.stack(0), "open path call open e f g h i");
	EXPECT_EQ(t.stack(1), "make b c");

	const frame &site = t.frame_of(t.events[0], 0);
	EXPECT_EQ(site.offset, 0x80U);
	EXPECT_EQ(site.size, 0x190U);
	EXPECT_EQ(site.module, "vfs");
	const frame &module = t.frame_of(t.events[0], 1);
	EXPECT_EQ(module.module, "vfs");
	EXPECT_EQ(module.size, 0x20U);
	EXPECT_EQ(t.frame_of(t.events[0], 2).offset, 1U);
	EXPECT_EQ(t.frame_of(t.events[0], 3).size, 0U);
}

TEST(trace_stack, without_the_call_site_drops_the_allocators_own_lead)
{
	const loaded t(
		temp_file(line(0, alloc("inlined+0x1/0x2", p1)) +
			  stack(0, {"__traceiter_kmem_cache_alloc", "kmem_cache_alloc_noprof",
				    "caller", "kfree_link", "c3", "c4", "c5", "c6", "c7", "c8"}) +
			  line(0, alloc("alone+0x1/0x2", p2)) + stack(0, {"kmem_cache_alloc"}) +
			  line(0, alloc("0xffffffc008001234", p3)) + stack(0, {})));
	EXPECT_EQ(t.stack(0), "caller kfree_link c3 c4 c5 c6 c7 c8");
	EXPECT_EQ(t.stack(1), "alone");
	EXPECT_EQ(t.stack(2), "0xffffffc008001234");
	EXPECT_EQ(t.frame_of(t.events[2], 0).size, 0U);
}

TEST(trace_stack, goes_to_the_last_event_of_any_kind_and_only_once)
{
	const std::string foreign = line(0, "mm_page_alloc: page=1 pfn=0x1 order=0");
	const loaded t(temp_file(
		// Interrupted: its own stack comes after that of the interrupt.
		line(0, alloc("task+0x1/0x2", p1)) + line(0, alloc("irq+0x1/0x2", p2)) +
		stack(0, {"irq", "handler"}) + stack(0, {"task", "syscall"}) +
		// The foreign event's stack is not that of the event in front of it.
		line(0, alloc("late+0x1/0x2", p3)) + foreign + stack(0, {"late", "wrong"}) +
		// Nor is one behind an event that is left out.
		line(0, kmalloc("0000000000000011", 64)) + line(0, kfree("0000000000000099")) +
		stack(0, {"make", "wrong"}) +
		// User space frames look alike.
		line(0, kmalloc("0000000000000012", 64)) + stack(0, {"make", "right"}) +
		line(0, "<user stack trace>") + " =>  <00007f0012345678>\n"));
	ASSERT_EQ(t.events.size(), 5U);
	EXPECT_EQ(t.stack(0), "task");
	EXPECT_EQ(t.stack(1), "irq handler");
	EXPECT_EQ(t.stack(2), "late");
	EXPECT_EQ(t.stack(3), "make");
	EXPECT_EQ(t.stack(4), "make right");
}

TEST(trace_stack, equal_frames_have_equal_numbers)
{
	const std::string once = line(0, alloc("a+0x1/0x2", p1)) + stack(0, {"a", "b", "a", "b"});
	const loaded t(temp_file(once + stack(1, {"z"}) + once + line(0, alloc("b+0x1/0x2", p2)) +
				 stack(0, {"b <ffffffc008001234>", "a", "c"})));
	EXPECT_EQ(t.events[0].stack, t.events[1].stack);
	EXPECT_EQ(t.stack(0), "a b a b");
	EXPECT_EQ(t.stack(2), "b a c");
	EXPECT_EQ(&t.frame_of(t.events[2], 1), &t.frame_of(t.events[0], 2));
	EXPECT_EQ(t.stacks.frames().size(), 5U);
}

TEST(trace_queue, does_not_wait_for_a_silent_cpu_for_ever)
{
	constexpr std::size_t count = event_queue::limit + 1000;
	std::string text = line(1, alloc("silent+0x1/0x2", p1));
	for (std::size_t i = 0; i < count; i++)
		text += line(0, kmalloc(null_ptr, 64));
	// By now the first event is gone; the last one still gets its stack.
	text += stack(1, {"silent", "caller"}) + stack(0, {"make", "caller"});
	const loaded t((temp_file(text)));
	ASSERT_EQ(t.events.size(), count + 1);
	EXPECT_EQ(t.stack(0), "silent");
	EXPECT_EQ(t.stack(1), "make");
	EXPECT_EQ(t.stack(count), "make caller");
}

TEST(trace_cache, of_an_allocation_is_learnt_from_the_first_free_of_its_site_and_size)
{
	const loaded t(temp_file(
		line(0, alloc("sk+0x1/0x2", p1, 960)) + line(0, alloc("sk+0x1/0x2", p2, 1024)) +
		line(0, alloc("other+0x1/0x2", p3, 40)) + line(0, kfree(p3)) +
		line(0, free_to("UNIX", p2)) + line(0, free_to("TCP", p1)) +
		line(0, alloc("sk+0x1/0x2", p1, 960)) + line(0, free_to("UDP", p1)) +
		line(0, "kmem_cache_alloc: call_site=x+0x1/0x2 ptr=0000000000000031 name=my cache "
			"bytes_req=1 bytes_alloc=32 gfp_flags=GFP_KERNEL") +
		line(0, free_to("TCP", "0000000000000031"))));

	ASSERT_EQ(t.events.size(), 10U);
	EXPECT_EQ(t.cache_of(t.events[0]).name, "TCP");
	EXPECT_EQ(t.cache_of(t.events[0]).object_size, 960U);
	EXPECT_EQ(t.cache_of(t.events[1]).name, "UNIX");
	EXPECT_EQ(t.cache_of(t.events[2]).name, "size-40");
	EXPECT_EQ(t.events[3].cache, t.events[2].cache);
	EXPECT_EQ(t.events[3].object, t.events[2].object);
	EXPECT_EQ(t.events[4].object, t.events[1].object);
	EXPECT_EQ(t.events[5].object, t.events[0].object);

	// One site and size may serve two caches; the object's own free knows which.
	EXPECT_EQ(t.cache_of(t.events[6]).name, "TCP");
	EXPECT_EQ(t.cache_of(t.events[7]).name, "UDP");
	EXPECT_EQ(t.events[7].object, t.events[6].object);
	EXPECT_EQ(t.cache_of(t.events[7]).existing, 1U);

	// An allocation that names its cache is not to be doubted: its free went unseen.
	EXPECT_EQ(t.cache_of(t.events[8]).name, "my cache");
	EXPECT_EQ(t.events[9].object, none);
	EXPECT_EQ(t.events[9].displaced, t.events[8].object);
}

TEST(trace_cache, of_kmalloc_is_spelt_as_the_kernel_does)
{
	const std::vector<std::pair<int, std::string>> cases = {
		{8, "kmalloc-8"},	 {96, "kmalloc-96"},	     {1024, "kmalloc-1k"},
		{1536, "kmalloc-1536"},	 {2048, "kmalloc-2k"},	     {524288, "kmalloc-512k"},
		{1 << 20, "kmalloc-1M"}, {3 << 19, "kmalloc-1536k"},
	};
	std::string text;
	for (const auto &[bytes, name] : cases)
		text += line(0, kmalloc(null_ptr, bytes));
	for (const char *name : {"kmalloc-rcl-2k", "kmalloc-cg-1M", "kmalloc-8M", "dentry", "filp"})
		text += line(0, free_to(name, p1));
	const loaded t((temp_file(text)));
	std::size_t i = 0;
	for (; i < cases.size(); i++) {
		EXPECT_EQ(t.cache_of(t.events[i]).name, cases[i].second);
		EXPECT_EQ(t.events[i].object, none);
	}
	EXPECT_EQ(t.cache_of(t.events[i]).object_size, 2048U);
	EXPECT_TRUE(t.cache_of(t.events[i]).reclaimable);
	EXPECT_EQ(t.cache_of(t.events[i + 1]).object_size, 1U << 20);
	EXPECT_FALSE(t.cache_of(t.events[i + 1]).reclaimable);
	EXPECT_EQ(t.cache_of(t.events[i + 2]).object_size, 64U);
	EXPECT_TRUE(t.cache_of(t.events[i + 3]).reclaimable);
	EXPECT_FALSE(t.cache_of(t.events[i + 4]).reclaimable);
}

TEST(trace_object, follows_the_pointer)
{
	const loaded t(temp_file(line(0, kfree(p1)) + line(0, kfree(null_ptr)) +
				 line(0, free_to("filp", null_ptr)) + line(0, kmalloc(p1, 64)) +
				 line(0, kmalloc(p2, 96)) + line(0, kmalloc(p1, 128)) +
				 line(0, kfree(p1)) + line(0, kfree(p1)) +
				 line(0, free_to("filp", p1)) + line(0, kfree(p2))));
	ASSERT_EQ(t.events.size(), 6U);
	EXPECT_EQ(t.events[2].displaced, t.events[0].object);
	EXPECT_NE(t.events[2].object, t.events[0].object);
	EXPECT_EQ(t.events[3].object, t.events[2].object);
	EXPECT_EQ(t.cache_of(t.events[3]).name, "kmalloc-128");
	EXPECT_EQ(t.events[4].object, none);
	EXPECT_EQ(t.cache_of(t.events[4]).existing, 1U);
	EXPECT_EQ(t.cache_of(t.events[5]).name, "kmalloc-96");
}

TEST(trace_object, map_survives_heavy_churn)
{
	// Neighbouring keys collide and wrap; a plain vector says what is right.
	constexpr std::uint32_t keys = 4096;
	u64_map map;
	std::vector<std::uint32_t> model(keys, none);
	std::uint64_t random = 1;
	for (std::uint32_t i = 0; i < 400000; i++) {
		random = random * 6364136223846793005ULL + 1442695040888963407ULL;
		const std::uint64_t slot = random >> 52;
		const std::uint64_t key = 0xffff888000000000ULL + slot * 64;
		if ((random >> 40 & 1) != 0) {
			ASSERT_EQ(map.put(key, i), model[slot]);
			model[slot] = i;
		} else {
			ASSERT_EQ(map.take(key), model[slot]);
			model[slot] = none;
		}
	}
}

// Older kernels: allocations on a node have events of their own, frees do not name the cache.
TEST(trace_cache, is_known_for_the_events_of_older_kernels)
{
	std::string node = alloc("a+0x1/0x2", p1);
	std::string sized = kmalloc(p2, 128);

	node.replace(0, node.find(':'), "kmem_cache_alloc_node");
	sized.replace(0, sized.find(':'), "kmalloc_node");
	const loaded t(
		temp_file(line(0, node) + line(0, sized) + line(0, kfree(p2)) +
			  line(0, "kmem_cache_free: call_site=b+0x1/0x2 ptr=" + std::string(p1))));

	ASSERT_EQ(t.events.size(), 4U);
	EXPECT_EQ(t.cache_of(t.events[0]).name, "size-192");
	EXPECT_EQ(t.cache_of(t.events[1]).name, "kmalloc-128");
	EXPECT_EQ(t.events[2].object, t.events[1].object);
	EXPECT_EQ(t.events[3].object, t.events[0].object);
}

// The form of trace-cmd's report: stacks are events, and frames have addresses and no sizes.
TEST(trace_stack, is_read_as_trace_cmd_writes_it)
{
	const loaded t(temp_file(
		"            task-7     [000]     2.000001: kmem_cache_alloc:     "
		"call_site=open+0x80 ptr=0xffff888003c1a000 bytes_req=8 bytes_alloc=192 "
		"gfp_flags=GFP_KERNEL\n"
		"            task-7     [000]     2.000002: kernel_stack:         <stack trace >\n"
		"=> kmem_cache_alloc+0x1 (ffffffff81000001)\n=> open+0x80 (ffffffff81000002)\n"
		"=> path (ffffffff81000003)\n"));

	ASSERT_EQ(t.events.size(), 1U);
	EXPECT_EQ(t.stack(0), "open+0x80 path");
	EXPECT_EQ(t.events[0].time, 2000001000U);
}

TEST(trace_stack, behind_lost_events_is_that_of_a_lost_event)
{
	const loaded t(temp_file(line(0, kmalloc(p1, 64)) + line(1, kmalloc(p2, 64)) +
				 "CPU:1 [LOST 12 EVENTS]\n" + stack(1, {"make", "wrong"}) +
				 stack(0, {"make", "right"}) + "CPU:0 [LOST EVENTS]\n"));

	EXPECT_EQ(t.stack(0), "make right");
	EXPECT_EQ(t.stack(1), "make");
	EXPECT_FALSE(t.events[1].has_stack);
	EXPECT_EQ(t.dir.facts().lost, 13U);
}

} // namespace

} // namespace tarn::trace
