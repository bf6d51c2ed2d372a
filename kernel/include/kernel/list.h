/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Makes an empty circular list, or a node that is on no list. */
static inline void INIT_LIST_HEAD(struct list_head *list)
{
	list->next = list;
	list->prev = list;
}

/* Inserts a node after head, that is, at the front of the list. */
static inline void list_add(struct list_head *node, struct list_head *head)
{
	node->next = head->next;
	node->prev = head;
	head->next->prev = node;
	head->next = node;
}

/* Removes a node from its list. The node's own links are left unchanged. */
static inline void list_del(struct list_head *node)
{
	node->next->prev = node->prev;
	node->prev->next = node->next;
}

KERNEL_C_END
#endif
