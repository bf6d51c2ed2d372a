// SPDX-License-Identifier: GPL-2.0-only
// File systems and inodes: the locks and references that a walk over inodes needs.
#include <functional>

#include <hosted/fs.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

class fs : public kernel_test
{
protected:
	// Runs a function on the inodes of the only file system, from a callback of iterate_supers.
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
using fs_death = fs;

TEST_F(fs_death, inodes_are_used_under_their_locks_in_order)
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

TEST_F(fs_death, only_a_reference_keeps_an_inode)
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
		EXPECT_NE(place, inodes) << "an inode in use stays on the list";
	});
	iput(&file);
	with_inodes([&](super_block *, list_head *inodes) {
		EXPECT_EQ(inodes->next, inodes)
			<< "the last reference is gone, and the inode with it";
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

} // namespace
