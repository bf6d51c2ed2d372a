/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct rb_node {
	unsigned long __rb_parent_color;
	struct rb_node *rb_right;
	struct rb_node *rb_left;
};

struct rb_root {
	struct rb_node *rb_node;
};

/* Inserts a node as a red leaf below parent, at link (one of the parent's child pointers). */
static inline void rb_link_node(struct rb_node *node, struct rb_node *parent, struct rb_node **link)
{
	node->__rb_parent_color = (unsigned long)parent;
	node->rb_left = node->rb_right = NULL;
	*link = node;
}

static inline struct rb_node *rb_parent(const struct rb_node *node)
{
	return (struct rb_node *)(node->__rb_parent_color & ~3UL);
}

/* Keep up what the nodes of an augmented tree know of their subtrees. */
struct rb_augment_callbacks {
	/* Recalculates nodes from node up to stop, or up to the first that does not change. */
	void (*propagate)(struct rb_node *node, struct rb_node *stop);
	/* new_node takes the place of old_node. */
	void (*copy)(struct rb_node *old_node, struct rb_node *new_node);
	/* old_node is now a child of new_node, which has taken its place. */
	void (*rotate)(struct rb_node *old_node, struct rb_node *new_node);
};

void rb_insert_color(struct rb_node *node, struct rb_root *root);
void rb_erase(struct rb_node *node, struct rb_root *root);
struct rb_node *rb_first(const struct rb_root *root);
struct rb_node *rb_next(const struct rb_node *node);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* As rb_insert_color() and rb_erase(), for an augmented tree. Before an insertion the caller
 * updates the nodes above the new one. */
void helper_rb_insert_augmented(struct rb_node *node, struct rb_root *root,
				const struct rb_augment_callbacks *callbacks);
void helper_rb_erase_augmented(struct rb_node *node, struct rb_root *root,
			       const struct rb_augment_callbacks *callbacks);

KERNEL_C_END
