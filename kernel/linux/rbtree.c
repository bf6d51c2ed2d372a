// SPDX-License-Identifier: GPL-2.0-only
#include <linux/rbtree_augmented.h>

#include <kernel/rbtree.h>

void helper_rb_insert_augmented(struct rb_node *node, struct rb_root *root,
				const struct rb_augment_callbacks *callbacks)
{
	rb_insert_augmented(node, root, callbacks);
}

void helper_rb_erase_augmented(struct rb_node *node, struct rb_root *root,
			       const struct rb_augment_callbacks *callbacks)
{
	rb_erase_augmented(node, root, callbacks);
}
