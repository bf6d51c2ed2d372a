// SPDX-License-Identifier: GPL-2.0-only
// Implements the kernel's tree layout: the colour is bit 0 of the parent word, and 1 is black. An
// augmented tree is told of each change as the kernel tells it: a node takes another's place
// (copy), a node moves below its child (rotate), the subtrees from a node up have changed
// (propagate).
#include <kernel/rbtree.h>

namespace
{

void no_propagate(rb_node *, rb_node *) {}
void no_change(rb_node *, rb_node *) {}

constexpr rb_augment_callbacks plain = {no_propagate, no_change, no_change};

bool is_red(const rb_node *node)
{
	return node && (node->__rb_parent_color & 1) == 0;
}

void set_red(rb_node *node)
{
	node->__rb_parent_color &= ~1UL;
}

void set_black(rb_node *node)
{
	node->__rb_parent_color |= 1;
}

void set_parent(rb_node *node, rb_node *parent)
{
	node->__rb_parent_color =
		reinterpret_cast<unsigned long>(parent) | (node->__rb_parent_color & 1);
}

void adopt(rb_node *child, rb_node *parent)
{
	if (child)
		set_parent(child, parent);
}

// A child is chosen by its side, so that mirrored cases share their code.
enum class side { left, right };

side other(side s)
{
	return s == side::left ? side::right : side::left;
}

rb_node *&child(rb_node *node, side s)
{
	return s == side::left ? node->rb_left : node->rb_right;
}

side side_of(const rb_node *node, const rb_node *parent)
{
	return parent->rb_left == node ? side::left : side::right;
}

// Makes the parent, or the root, point to a node instead of to the one that it had.
void replace_child(rb_node *parent, const rb_node *old, rb_node *node, rb_root &root)
{
	if (parent)
		child(parent, side_of(old, parent)) = node;
	else
		root.rb_node = node;
}

// Moves a node down to a side; its child from the other side takes its place.
void rotate(rb_node *node, side down, rb_root &root, const rb_augment_callbacks &callbacks)
{
	rb_node *up = child(node, other(down));
	rb_node *moved = child(up, down);

	replace_child(rb_parent(node), node, up, root);
	set_parent(up, rb_parent(node));
	child(node, other(down)) = moved;
	adopt(moved, node);
	child(up, down) = node;
	set_parent(node, up);
	callbacks.rotate(node, up);
}

void insert(rb_node *node, rb_root &root, const rb_augment_callbacks &callbacks)
{
	set_red(node);
	for (rb_node *parent = rb_parent(node); is_red(parent); parent = rb_parent(node)) {
		rb_node *top = rb_parent(parent);
		const side s = side_of(parent, top);
		rb_node *uncle = child(top, other(s));

		if (is_red(uncle)) {
			set_black(parent);
			set_black(uncle);
			set_red(top);
			node = top;
			continue;
		}
		if (node == child(parent, other(s))) {
			rotate(parent, s, root, callbacks);
			parent = node;
		}
		set_black(parent);
		set_red(top);
		rotate(top, other(s), root, callbacks);
		break;
	}
	set_black(root.rb_node);
}

// The paths through node, perhaps null, below parent have lost a black node.
void restore_black(rb_node *node, rb_node *parent, rb_root &root,
		   const rb_augment_callbacks &callbacks)
{
	while (parent && !is_red(node)) {
		const side s = node == parent->rb_left ? side::left : side::right;
		rb_node *sibling = child(parent, other(s));

		if (is_red(sibling)) {
			set_black(sibling);
			set_red(parent);
			rotate(parent, s, root, callbacks);
			sibling = child(parent, other(s));
		}
		if (!is_red(sibling->rb_left) && !is_red(sibling->rb_right)) {
			set_red(sibling);
			node = parent;
			parent = rb_parent(node);
			continue;
		}
		if (!is_red(child(sibling, other(s)))) {
			set_black(child(sibling, s));
			set_red(sibling);
			rotate(sibling, other(s), root, callbacks);
			sibling = child(parent, other(s));
		}
		if (!is_red(parent))
			set_black(sibling);
		else
			set_red(sibling);
		set_black(parent);
		set_black(child(sibling, other(s)));
		rotate(parent, s, root, callbacks);
		return;
	}
	if (node)
		set_black(node);
}

void erase(rb_node *node, rb_root &root, const rb_augment_callbacks &callbacks)
{
	rb_node *gap = node; // the place that disappears has at most one child
	if (node->rb_left && node->rb_right)
		for (gap = node->rb_right; gap->rb_left;)
			gap = gap->rb_left;
	rb_node *below = gap->rb_left ? gap->rb_left : gap->rb_right;
	rb_node *above = rb_parent(gap);
	const bool lost_black = !is_red(gap);

	replace_child(above, gap, below, root);
	adopt(below, above);
	if (gap != node) {
		if (above == node)
			above = gap;
		*gap = *node;
		replace_child(rb_parent(node), node, gap, root);
		adopt(gap->rb_left, gap);
		adopt(gap->rb_right, gap);
		callbacks.copy(node, gap);
		if (above != gap)
			callbacks.propagate(above, gap);
		callbacks.propagate(gap, nullptr);
	} else if (above) {
		callbacks.propagate(above, nullptr);
	}
	if (lost_black)
		restore_black(below, above, root, callbacks);
}

} // namespace

void rb_insert_color(rb_node *node, rb_root *root)
{
	insert(node, *root, plain);
}

void rb_erase(rb_node *node, rb_root *root)
{
	erase(node, *root, plain);
}

void helper_rb_insert_augmented(rb_node *node, rb_root *root, const rb_augment_callbacks *callbacks)
{
	insert(node, *root, *callbacks);
}

void helper_rb_erase_augmented(rb_node *node, rb_root *root, const rb_augment_callbacks *callbacks)
{
	erase(node, *root, *callbacks);
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
	rb_node *parent = rb_parent(node);
	while (parent && parent->rb_right == node) {
		node = parent;
		parent = rb_parent(node);
	}
	return parent;
}
