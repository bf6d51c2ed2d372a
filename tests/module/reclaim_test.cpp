// SPDX-License-Identifier: GPL-2.0-only
// Reclaim, drops and compaction: the calls into the kernel, and the walk over inodes.
#include <fmt/format.h>
#include <hosted/debug_symbol.h>
#include <hosted/fs.h>
#include <hosted/process.h>
#include <hosted/reclaim.h>

#include "fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using files = std::vector<const inode *>;
using indices = std::vector<unsigned long>;

class reclaim : public module_test
{
protected:
	// Creates a file with a page to drop.
	static inode &cached_file(super_block &sb)
	{
		inode &file = create_file(sb);

		cache_page(file, 0);
		return file;
	}

	unsigned long (*direct_reclaim)(unsigned long) =
		exported<unsigned long(unsigned long)>("tarn_reclaim");
	void (*drop_slabcache)() = exported<void()>("tarn_drop_slabcache");
	void (*drop_pagecache)() = exported<void()>("tarn_drop_pagecache");
	void (*compact)(int, unsigned, unsigned long) =
		exported<void(int, unsigned, unsigned long)>("tarn_compact");
};

TEST_F(reclaim, asks_for_the_order_of_the_size)
{
	const std::pair<unsigned long, int> orders[] = {
		{1, 0},
		{4096, 0},
		{4097, 1},
		{8192, 1},
		{8193, 2},
		{1UL << 22, 10},
		{(1UL << 22) + 1, 11},
		{0, 52},
		{-1UL, 52},
	};
	set_reclaimed(77);
	for (const auto &[size, order] : orders) {
		EXPECT_EQ(direct_reclaim(size), 77U);
		EXPECT_THAT(take_reclaims(), ElementsAre(reclaim_call{order, 0x2100cca})) << size;
	}
}

TEST_F(reclaim, leaves_the_task_without_its_memalloc_flag)
{
	for (const unsigned before : {0U, PF_MEMALLOC}) {
		constexpr unsigned other = 0x40;
		helper_current_set_flags(before | other);
		direct_reclaim(1);
		EXPECT_EQ(helper_task_flags(helper_current()), other);
		helper_current_clear_flags(other);
	}
}

TEST_F(reclaim, drops_slab_and_compacts_once)
{
	drop_slabcache();
	EXPECT_EQ(take_slab_drops(), 1U);
	compact(1, 2, 3);
	EXPECT_THAT(take_compactions(), ElementsAre(compact_call{.gfp = 0xcc0,
								 .order = -1U,
								 .alloc_flags = 0,
								 .priority = 0,
								 .migratetype = 0,
								 .highest_zone = 1}));
}

TEST_F(reclaim, a_missing_kernel_function_is_logged_and_nothing_done)
{
	struct service {
		const char *name;
		android_debug_symbol_index index;
		std::function<void()> run;
	};
	const service services[] = {
		{"tarn_drop_pagecache", ADS_ITERATE_SUPERS, drop_pagecache},
		{"tarn_drop_slabcache", ADS_DROP_SLAB, drop_slabcache},
		{"tarn_reclaim", ADS_TRY_TO_FREE_PAGES,
		 [&] {
			 EXPECT_EQ(direct_reclaim(4096), 0U);
		 }},
		{"tarn_compact", ADS_TRY_TO_COMPACT_PAGES,
		 [&] {
			 compact(0, 0, 0);
		 }},
	};
	inode &file = cached_file(mount());

	set_reclaimed(77);
	helper_current_set_flags(PF_MEMALLOC);
	for (const auto &[name, index, run] : services) {
		for (void *instead : {ERR_PTR(-ENOENT), ERR_PTR(-EINVAL), ERR_PTR(0)}) {
			hide_debug_symbol(index, instead);
			forget_log();
			run();
			EXPECT_EQ(errors(), lines{fmt::format("[{}] debug symbol {} not found\n",
							      name, int(index))});
		}
	}
	EXPECT_EQ(helper_task_flags(helper_current()), 0U);
	EXPECT_EQ(cached_pages(file), indices{0});
	EXPECT_EQ(take_slab_drops(), 0U);
	EXPECT_THAT(take_reclaims(), IsEmpty());
	EXPECT_THAT(take_compactions(), IsEmpty());
}

TEST_F(reclaim, drops_the_clean_pages_of_every_file_system)
{
	inode &file = create_file(mount());
	cache_page(file, 0);
	cache_page(file, 1, {.dirty = true});
	cache_page(file, 2, {.mapped = true});
	cache_page(file, 3, {.locked = true});
	cache_page(file, 4, {.writeback = true});
	cache_page(file, -1UL);
	super_block &second = mount();
	inode &early = cached_file(second);
	inode &late = cached_file(second);
	mount();

	drop_pagecache();
	EXPECT_EQ(cached_pages(file), (indices{1, 2, 3, 4}));
	EXPECT_EQ(take_invalidations(), (files{&file, &late, &early})) << "newest first";
	for (inode *each : {&file, &early, &late})
		EXPECT_EQ(references(*each), 0);
}

TEST_F(reclaim, skips_inodes_that_are_created_or_freed)
{
	super_block &sb = mount();
	files dropped;
	for (unsigned long state = 0; state < 0x80; state++) {
		inode &file = cached_file(sb);
		set_inode_state(file, state);
		if (!(state & 0x38))
			dropped.insert(dropped.begin(), &file);
	}
	drop_pagecache();
	EXPECT_EQ(take_invalidations(), dropped);
}

TEST_F(reclaim, a_pending_reschedule_makes_the_walk_stop_at_an_empty_inode)
{
	super_block &sb = mount();
	create_file(sb);
	inode &full = cached_file(sb);
	inode &empty = create_file(sb);
	inode &freed = create_file(sb);
	set_inode_state(freed, KERNEL_I_FREEING);

	set_need_resched(true);
	drop_pagecache();
	EXPECT_EQ(take_invalidations(), (files{&empty, &full}))
		<< "dropping a page rescheduled, so nothing is pending any more";
	EXPECT_FALSE(helper_need_resched());
	drop_pagecache();
	EXPECT_THAT(take_invalidations(), IsEmpty());
}

TEST_F(reclaim, files_come_and_go_while_the_list_is_unlocked)
{
	super_block &sb = mount();
	std::vector<inode *> all; // in the walk's order
	for (int i = 0; i < 12; i++)
		all.insert(all.begin(), &cached_file(sb));
	std::size_t at = 0;
	on_invalidation([&](inode &file) {
		ASSERT_EQ(&file, all[at]) << at;
		EXPECT_EQ(references(file), 1);
		if (at > 0) {
			EXPECT_EQ(references(*all[at - 1]), 1) << "put too early";
		}
		cached_file(sb); // added in front of all, where the walk has passed
		switch (at) {
		case 0: // the one at hand, and its neighbour
			remove_file(file);
			remove_file(*all[1]);
			all.erase(all.begin() + 1);
			break;
		case 3: // the one before, which the walk holds
			remove_file(*all[2]);
			break;
		case 5: // all that would follow
			for (; all.size() > 6; all.pop_back())
				remove_file(*all.back());
		}
		at++;
	});
	drop_pagecache();
	EXPECT_EQ(at, 6U);
	on_invalidation({});

	take_invalidations();
	drop_pagecache();
	EXPECT_EQ(take_invalidations().size(), 6U) << "including those created meanwhile";
	for (const std::size_t stays : {1U, 3U, 4U, 5U})
		EXPECT_EQ(references(*all[stays]), 0);
}

} // namespace
