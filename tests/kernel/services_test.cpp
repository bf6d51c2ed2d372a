// SPDX-License-Identifier: GPL-2.0-only
// Zones, file systems, processes and reclaim: the rules that callers are held to.
#include <hosted/cpumask.h>
#include <hosted/fs.h>
#include <hosted/mmzone.h>
#include <hosted/process.h>
#include <hosted/reclaim.h>
#include <kernel/cpumask.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

class services : public kernel_test
{
protected:
	// What a callback of iterate_supers does with the one file system's inodes.
	static void with_inodes(const std::function<void(super_block *sb, list_head *inodes)> &run)
	{
		static std::function<void(super_block *, list_head *)> body;
		body = run;
		iterate_supers([](super_block *sb, void *) { body(sb, helper_sb_inodes(sb)); },
			       nullptr);
	}
	// Takes a reference as a walk does.
	static void get(inode &file)
	{
		helper_inode_lock(&file);
		helper_inode_get(&file);
		helper_inode_unlock(&file);
	}
};
using services_death = services;

TEST_F(services_death, a_task_is_used_in_a_read_section_and_its_memory_under_its_lock)
{
	task_struct &task = add_process("app", 7, {.anon = 5});

	EXPECT_DEATH(helper_task_comm(&task), "used outside an RCU read section");
	EXPECT_DEATH(helper_task_lock(&task), "used outside an RCU read section");
	EXPECT_DEATH(send_sig(SIGKILL, &task, 0), "used outside an RCU read section");
	EXPECT_DEATH(helper_next_process(&init_task), "walked outside");
	{
		const task_scope own(task);
		EXPECT_EQ(helper_task_pid(&task), 7) << "one's own task stays";
	}
	const rcu_read_guard rcu;
	ASSERT_EQ(helper_next_process(&init_task), &task);
	EXPECT_EQ(helper_next_process(&task), &init_task);
	EXPECT_DEATH(helper_task_mm(&task), "read without the task's lock");
	helper_task_lock(&task);
	const mm_struct *mm = helper_task_mm(&task);
	EXPECT_EQ(helper_mm_counter(mm, MM_COUNTER_ANON), 5U);
	EXPECT_DEATH(helper_task_lock(&init_task), "two locks of class alloc_lock");
	helper_task_unlock(&task);
	EXPECT_DEATH(helper_mm_counter(mm, MM_COUNTER_ANON), "read without a task's lock");
}

TEST_F(services, who_exits_leaves_the_list_but_stays_for_who_looks_at_it)
{
	task_struct &first = add_process("first", 1);
	task_struct &second = add_process("second", 2);
	task_struct &third = add_process("third", 3);
	{
		const rcu_read_guard rcu;
		exit_process(first);
		exit_process(second);
		EXPECT_EQ(helper_next_process(&init_task), &third);
		EXPECT_EQ(helper_next_process(&first), &second) << "the way on of one that is gone";
		EXPECT_STREQ(helper_task_comm(&second), "second");
		EXPECT_EQ(send_sig(SIGKILL, &second, 0), -ESRCH);
		const fault_scope fault(1);
		EXPECT_EQ(send_sig(SIGKILL, &third, 0), -EAGAIN);
	}
	EXPECT_TRUE(take_signals().empty());
	exit_process(third); // frees all of them
}

TEST_F(services_death, an_inode_is_touched_under_its_locks_in_their_order)
{
	super_block &sb = mount();
	inode &file = create_file(sb);

	EXPECT_DEATH(helper_inode_state(&file), "the inode is not locked");
	EXPECT_DEATH(helper_inode_get(&file), "the inode is not locked");
	with_inodes([&](super_block *, list_head *inodes) {
		EXPECT_DEATH(helper_inode_of(inodes->next), "walked without its lock");
		helper_sb_inodes_lock(&sb);
		ASSERT_EQ(helper_inode_of(inodes->next), &file);
		helper_inode_lock(&file);
		helper_inode_get(&file);
		helper_inode_unlock(&file);
		EXPECT_DEATH(iput(&file), "atomic context: iput");
		EXPECT_DEATH(invalidate_mapping_pages(helper_inode_mapping(&file), 0, -1UL),
			     "atomic context: invalidate_mapping_pages");
		helper_sb_inodes_unlock(&sb);
		EXPECT_DEATH(
			{
				helper_inode_lock(&file);
				helper_sb_inodes_lock(&sb);
			},
			"s_inode_list_lock is taken under i_lock");
	});
	EXPECT_DEATH(
		with_inodes([](super_block *each, list_head *) { helper_sb_inodes_lock(each); }),
		"left behind by a callback: iterate_supers");
	iput(&file);
}

TEST_F(services_death, a_reference_keeps_an_inode_and_only_that_does)
{
	super_block &sb = mount();
	inode &file = create_file(sb);
	address_space *mapping = helper_inode_mapping(&file);
	cache_page(file, 3);
	cache_page(file, 9);

	EXPECT_DEATH(invalidate_mapping_pages(mapping, 0, -1UL), "no one keeps the inode");
	EXPECT_DEATH(iput(&file), "a reference is dropped that no one has");
	get(file);
	EXPECT_DEATH(unmount(sb), "unmounted with a file in use");
	EXPECT_EQ(invalidate_mapping_pages(mapping, 4, 9), 1U);
	EXPECT_EQ(cached_pages(file), (std::vector{3UL}));
	remove_file(file);
	list_head *place = nullptr;
	with_inodes([&](super_block *, list_head *inodes) {
		place = inodes->next;
		EXPECT_NE(place, inodes) << "in use, it stays on the list";
	});
	iput(&file);
	with_inodes([&](super_block *, list_head *inodes) {
		EXPECT_EQ(inodes->next, inodes) << "it went with its last reference";
		helper_sb_inodes_lock(&sb);
		EXPECT_DEATH(helper_inode_of(place), "that inode was freed");
		EXPECT_DEATH(helper_inode_of(place->next), "the walk has lost its place");
		helper_sb_inodes_unlock(&sb);
	});
	inode &going = create_file(sb);
	set_inode_state(going, KERNEL_I_FREEING);
	EXPECT_DEATH(get(going), "the inode is being freed");
	unmount(sb);
	with_inodes([](super_block *, list_head *) { FAIL() << "nothing is mounted"; });
}

TEST_F(services_death, reclaim_and_compaction_are_called_as_the_allocator_calls_them)
{
	zonelist *zones = helper_node_zonelist(&contig_page_data);
	page *captured = nullptr;
	alloc_context context;
	helper_alloc_context_init(&context, zones, 2, 1);
	const auto reclaim = [&](zonelist *from) {
		return try_to_free_pages(from, 0, GFP_KERNEL);
	};
	const auto compact = [&](page **slot) {
		try_to_compact_pages(GFP_KERNEL, 3, 4, &context, 5, slot);
	};

	EXPECT_DEATH(reclaim(zones), "without PF_MEMALLOC");
	helper_current_set_flags(PF_MEMALLOC);
	EXPECT_DEATH(reclaim(nullptr), "not the node's");
	EXPECT_DEATH(try_to_free_pages(zones, 0, GFP_ATOMIC), "forbid direct reclaim");
	EXPECT_DEATH(compact(nullptr), "no empty slot");
	{
		const rcu_read_guard rcu;
		EXPECT_DEATH(reclaim(zones), "atomic context: try_to_free_pages");
		EXPECT_DEATH(drop_slab(), "atomic context: drop_slab");
		EXPECT_DEATH(compact(&captured), "atomic context: try_to_compact_pages");
		EXPECT_DEATH(iterate_supers(nullptr, nullptr), "atomic context: iterate_supers");
	}
	set_reclaimed(9);
	EXPECT_EQ(reclaim(zones), 9U);
	compact(&captured);
	EXPECT_EQ(take_reclaims(), (std::vector<reclaim_call>{{0, GFP_KERNEL}}));
	EXPECT_EQ(take_compactions(), (std::vector<compact_call>{{GFP_KERNEL, 3, 4, 5, 2, 1}}));
	EXPECT_TRUE(take_reclaims().empty() && take_compactions().empty());
	helper_current_clear_flags(PF_MEMALLOC);
}

TEST_F(services_death, a_zone_counts_its_free_blocks)
{
	const zone *zone = helper_node_zone(&contig_page_data, 2);

	set_free_blocks(2, 3, cma_list, 5);
	set_free_blocks(2, 3, 0, 2);
	set_free_blocks(2, 3, cma_list, 1);
	EXPECT_EQ(helper_zone_free_blocks(zone, 3), 3U);
	EXPECT_FALSE(helper_zone_free_list_empty(zone, 3, cma_list));
	set_free_blocks(2, 3, cma_list, 0);
	EXPECT_TRUE(helper_zone_free_list_empty(zone, 3, cma_list));
	EXPECT_FALSE(helper_zone_free_list_empty(zone, 3, 0));
	set_cpu_online(64, true);
	EXPECT_EQ(helper_online_cpus()[0], 0xffU);
	EXPECT_EQ(helper_online_cpus()[1], 1U);
	EXPECT_DEATH(helper_node_zone(&contig_page_data, 5), "zone 5 is out of range");
	EXPECT_DEATH(helper_zone_free_blocks(zone, 11), "order 11 is out of range");
	EXPECT_DEATH(helper_zone_free_list_empty(zone, 0, 6), "list 6 is out of range");
	EXPECT_DEATH(helper_zone_free_pages_diff(zone, KERNEL_NR_CPUS), "CPU 96 is out of range");
}

} // namespace
