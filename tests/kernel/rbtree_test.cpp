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
};

item *item_of(rb_node *node)
{
	return reinterpret_cast<item *>(node);
}

void insert(rb_root &root, item &added)
{
	rb_node **link = &root.rb_node;
	rb_node *parent = nullptr;
	while (*link) {
		parent = *link;
		link = added.key < item_of(parent)->key ? &parent->rb_left : &parent->rb_right;
	}
	rb_link_node(&added.node, parent, link);
	rb_insert_color(&added.node, &root);
}

// The number of black nodes on every path below. Fails the property if the colours break a rule.
int black_height(const rb_node *node, const rb_node *parent)
{
	if (!node)
		return 0;
	RC_ASSERT((node->__rb_parent_color & ~1UL) == reinterpret_cast<unsigned long>(parent));
	const bool red = (node->__rb_parent_color & 1) == 0;
	RC_ASSERT(!red || (parent && (parent->__rb_parent_color & 1) == 1));
	const int left = black_height(node->rb_left, node);
	RC_ASSERT(left == black_height(node->rb_right, node));
	return left + (red ? 0 : 1);
}

TEST(rbtree_test, any_inserts_and_erases_keep_order_and_balance)
{
	const bool holds = rc::check([](const std::vector<std::pair<bool, uint8_t>> &steps) {
		rb_root root = {};
		std::map<int, std::unique_ptr<item>> model;
		for (const auto &[erase, key] : steps) {
			const auto found = model.find(key % 64);
			if (found == model.end()) {
				auto added = std::make_unique<item>();
				added->key = key % 64;
				insert(root, *added);
				model.emplace(key % 64, std::move(added));
			} else if (erase) {
				rb_erase(&found->second->node, &root);
				model.erase(found);
			}
			black_height(root.rb_node, nullptr);
		}
		rb_node *node = rb_first(&root);
		for (const auto &[key, value] : model) {
			RC_ASSERT(node == &value->node);
			node = rb_next(node);
		}
		RC_ASSERT(node == nullptr);
	});
	EXPECT_TRUE(holds);
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
