// SPDX-License-Identifier: GPL-2.0-only
#include <kernel/list.h>

namespace
{

using compare = int (*)(void *, const list_head *, const list_head *);

// Sorts a chain of nodes linked by next, with null at the end; prev is repaired afterwards.
struct sorter {
	void *priv;
	compare cmp;

	list_head *merge(list_head *a, list_head *b) const
	{
		list_head merged{};
		list_head *tail = &merged;
		while (a && b) {
			list_head *&lesser = cmp(priv, a, b) > 0 ? b : a;
			tail = tail->next = lesser;
			lesser = lesser->next;
		}
		tail->next = a ? a : b;
		return merged.next;
	}
	// Removes this many nodes from the chain and sorts them.
	list_head *sort(list_head *&chain, size_t nodes) const
	{
		if (nodes == 1) {
			list_head *node = chain;
			chain = node->next;
			node->next = nullptr;
			return node;
		}
		list_head *first = sort(chain, nodes / 2);
		return merge(first, sort(chain, nodes - nodes / 2));
	}
};

} // namespace

void list_sort(void *priv, list_head *head, compare cmp)
{
	size_t nodes = 0;
	for (const list_head *at = head->next; at != head; at = at->next)
		nodes++;
	if (nodes < 2)
		return;
	head->prev->next = nullptr;
	list_head *chain = head->next;
	head->next = sorter{priv, cmp}.sort(chain, nodes);
	list_head *before = head;
	for (list_head *at = head->next; at; at = at->next) {
		at->prev = before;
		before = at;
	}
	before->next = head;
	head->prev = before;
}
