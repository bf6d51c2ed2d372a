// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <kernel/rbtree.h>
#include <kernel/sort.h>
#include <rapidcheck.h>

namespace
{

struct item {
	rb_node node;
	int key;
	int sum; // of the keys of the node and all below it
};

item *item_of(rb_node *node)
{
	return reinterpret_cast<item *>(node);
}

int sum_of(const rb_node *node)
{
	return node ? reinterpret_cast<const item *>(node)->sum : 0;
}

bool update(item *changed)
{
	const int sum =
		changed->key + sum_of(changed->node.rb_left) + sum_of(changed->node.rb_right);
	const bool differs = changed->sum != sum;
	changed->sum = sum;
	return differs;
}

constexpr rb_augment_callbacks sums = {
	[](rb_node *node, rb_node *stop) {
		while (node != stop && update(item_of(node)))
			node = rb_parent(node);
	},
	[](rb_node *from, rb_node *to) { item_of(to)->sum = item_of(from)->sum; },
	[](rb_node *lowered, rb_node *raised) {
		item_of(raised)->sum = item_of(lowered)->sum;
		update(item_of(lowered));
	},
};

void insert(rb_root &root, item &added, bool augmented)
{
	rb_node **link = &root.rb_node;
	rb_node *parent = nullptr;
	while (*link) {
		parent = *link;
		item_of(parent)->sum += added.key;
		link = added.key < item_of(parent)->key ? &parent->rb_left : &parent->rb_right;
	}
	added.sum = added.key;
	rb_link_node(&added.node, parent, link);
	if (augmented)
		helper_rb_insert_augmented(&added.node, &root, &sums);
	else
		rb_insert_color(&added.node, &root);
}

void erase(rb_root &root, item &removed, bool augmented)
{
	if (augmented)
		helper_rb_erase_augmented(&removed.node, &root, &sums);
	else
		rb_erase(&removed.node, &root);
}

// The number of black nodes on every path below. Fails the property if the colours break a rule.
int black_height(const rb_node *node, const rb_node *parent)
{
	if (!node)
		return 0;
	RC_ASSERT(rb_parent(node) == parent);
	const bool red = (node->__rb_parent_color & 1) == 0;
	RC_ASSERT(!red || (parent && (parent->__rb_parent_color & 1) == 1));
	const int left = black_height(node->rb_left, node);
	RC_ASSERT(left == black_height(node->rb_right, node));
	return left + (red ? 0 : 1);
}

// Fails the property if a node does not know the sum of its subtree.
void check_sums(rb_node *node)
{
	if (!node)
		return;
	check_sums(node->rb_left);
	check_sums(node->rb_right);
	RC_ASSERT(!update(item_of(node)));
}

TEST(rbtree_test, any_inserts_and_erases_keep_order_and_balance_and_sums)
{
	const auto keeps = [](const std::vector<std::pair<bool, uint8_t>> &steps, bool augmented) {
		rb_root root = {};
		std::map<int, std::unique_ptr<item>> model;
		for (const auto &[erased, key] : steps) {
			const auto found = model.find(key % 64);
			if (found == model.end()) {
				auto added = std::make_unique<item>();
				added->key = key % 64;
				insert(root, *added, augmented);
				model.emplace(key % 64, std::move(added));
			} else if (erased) {
				erase(root, *found->second, augmented);
				model.erase(found);
			}
			black_height(root.rb_node, nullptr);
			if (augmented)
				check_sums(root.rb_node);
		}
		rb_node *node = rb_first(&root);
		for (const auto &[key, value] : model) {
			RC_ASSERT(node == &value->node);
			node = rb_next(node);
		}
		RC_ASSERT(node == nullptr);
	};
	EXPECT_TRUE(rc::check([&](const std::vector<std::pair<bool, uint8_t>> &steps) {
		keeps(steps, false);
		keeps(steps, true);
	}));
}

int by_first_byte(const void *a, const void *b)
{
	return *static_cast<const unsigned char *>(a) - *static_cast<const unsigned char *>(b);
}

TEST(sort_test, sorts_like_std)
{
	using element = std::array<unsigned char, 5>;
	EXPECT_TRUE(rc::check([](std::vector<element> values) {
		std::vector<element> sorted = values;
		sort(sorted.data(), sorted.size(), sizeof(element), by_first_byte, nullptr);
		RC_ASSERT(std::ranges::is_sorted(sorted, {},
						 [](const element &value) { return value[0]; }));
		RC_ASSERT(std::ranges::is_permutation(sorted, values));
	}));
}

} // namespace
