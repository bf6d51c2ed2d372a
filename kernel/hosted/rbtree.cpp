// SPDX-License-Identifier: GPL-2.0-only
// Implements the kernel's tree layout (the colour is bit 0 of the parent word; 1 is black) with the
// algorithms of Boost.Intrusive. Those need a header node above the root, which the kernel does not
// have, so each call adds a temporary one.
#include <kernel/rbtree.h>

#include <boost/intrusive/rbtree_algorithms.hpp>

namespace
{

struct layout {
	using node = rb_node;
	using node_ptr = rb_node *;
	using const_node_ptr = const rb_node *;
	enum color : unsigned long { red_color = 0, black_color = 1 };

	static color red()
	{
		return red_color;
	}
	static color black()
	{
		return black_color;
	}
	static color get_color(const rb_node *n)
	{
		return color(n->__rb_parent_color & 1);
	}
	static void set_color(rb_node *n, color c)
	{
		n->__rb_parent_color = (n->__rb_parent_color & ~1UL) | c;
	}
	static rb_node *get_parent(const rb_node *n)
	{
		return reinterpret_cast<rb_node *>(n->__rb_parent_color & ~1UL);
	}
	static void set_parent(rb_node *n, rb_node *parent)
	{
		n->__rb_parent_color = reinterpret_cast<unsigned long>(parent) | get_color(n);
	}
	static rb_node *get_left(const rb_node *n)
	{
		return n->rb_left;
	}
	static void set_left(rb_node *n, rb_node *left)
	{
		n->rb_left = left;
	}
	static rb_node *get_right(const rb_node *n)
	{
		return n->rb_right;
	}
	static void set_right(rb_node *n, rb_node *right)
	{
		n->rb_right = right;
	}
};

using algorithms = boost::intrusive::rbtree_algorithms<layout>;

// The header node above the root during one operation.
class header
{
public:
	explicit header(rb_root &root) : root_(root)
	{
		layout::set_parent(&node_, root.rb_node);
		if (root.rb_node)
			layout::set_parent(root.rb_node, &node_);
	}
	~header()
	{
		root_.rb_node = layout::get_parent(&node_);
		if (root_.rb_node)
			layout::set_parent(root_.rb_node, nullptr);
	}
	header(const header &) = delete;
	header &operator=(const header &) = delete;

	rb_node *node()
	{
		return &node_;
	}

private:
	rb_root &root_;
	rb_node node_ = {};
};

} // namespace

void rb_insert_color(rb_node *node, rb_root *root)
{
	rb_node *parent = layout::get_parent(node);
	const bool left = parent && parent->rb_left == node;
	if (!parent)
		root->rb_node = nullptr;
	header top(*root);
	algorithms::insert_commit_data place;
	place.node = parent ? parent : top.node();
	place.link_left = left;
	algorithms::insert_unique_commit(top.node(), node, place);
}

void rb_erase(rb_node *node, rb_root *root)
{
	header top(*root);
	algorithms::erase(top.node(), node);
}

rb_node *rb_first(const rb_root *root)
{
	rb_node *node = root->rb_node;
	while (node && node->rb_left)
		node = node->rb_left;
	return node;
}

rb_node *rb_next(const rb_node *node)
{
	if (rb_node *next = node->rb_right) {
		while (next->rb_left)
			next = next->rb_left;
		return next;
	}
	rb_node *parent = layout::get_parent(node);
	while (parent && parent->rb_right == node) {
		node = parent;
		parent = layout::get_parent(node);
	}
	return parent;
}
