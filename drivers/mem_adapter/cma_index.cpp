// SPDX-License-Identifier: GPL-2.0-only
// An interval tree in order of first page. Each node also has the last page and the newest record
// of its subtree, so that a search leaves out subtrees that end too early or are too old.
#include "cma_index.h"

#include <kernel/string.h>

constinit u64 cma_ranked_serial = 0;

namespace
{

constinit struct rb_root records GUARDED_BY(cma_lock) = {};
constinit u64 newest_serial GUARDED_BY(cma_lock) = 0;

// The pages that a search or a record touches. A range of no pages touches the pages on both sides
// of its place, since the edges of ranges are compared, too.
struct span {
	unsigned long low;
	unsigned long high;
};

span span_of(unsigned long start, unsigned long end)
{
	return start <= end ? span{start, end} : span{end, start};
}

struct cma_stackinfo *record_of(struct rb_node *node)
{
	return reinterpret_cast<struct cma_stackinfo *>(reinterpret_cast<char *>(node) -
							__builtin_offsetof(cma_stackinfo, tree));
}

template <class T>
void raise(T &value, T to)
{
	if (value < to)
		value = to;
}

void include(struct rb_node *child, unsigned long &last, u64 &newest)
{
	if (!child)
		return;
	raise(last, record_of(child)->subtree_last);
	raise(newest, record_of(child)->subtree_newest);
}

// Recalculates a node from its children. Returns whether it has changed.
bool update(struct cma_stackinfo *info)
{
	unsigned long last = span_of(info->start_pfn, info->end_pfn).high;
	u64 newest = info->serial;

	include(info->tree.rb_left, last, newest);
	include(info->tree.rb_right, last, newest);
	if (info->subtree_last == last && info->subtree_newest == newest)
		return false;
	info->subtree_last = last;
	info->subtree_newest = newest;
	return true;
}

void propagate(struct rb_node *node, struct rb_node *stop)
{
	while (node != stop && update(record_of(node)))
		node = rb_parent(node);
}

void copy(struct rb_node *from, struct rb_node *to)
{
	record_of(to)->subtree_last = record_of(from)->subtree_last;
	record_of(to)->subtree_newest = record_of(from)->subtree_newest;
}

void rotate(struct rb_node *lowered, struct rb_node *raised)
{
	copy(lowered, raised);
	update(record_of(lowered));
}

constexpr struct rb_augment_callbacks callbacks = {propagate, copy, rotate};

bool is_before(const cma_place &a, const cma_place &b)
{
	return a.pfn != b.pfn ? a.pfn < b.pfn : a.serial > b.serial;
}

// A search for the records that a released range belongs to.
struct search {
	const char *name;
	unsigned long start;
	unsigned long end;
	span pages;
	u64 older; // only records newer than this are of interest
};

bool matches(const struct cma_stackinfo &info, const search &s)
{
	const bool same_edge = info.start_pfn == s.start || info.end_pfn == s.end;
	const bool overlaps = info.start_pfn <= s.end && info.end_pfn >= s.start;

	return info.serial > s.older && (same_edge || overlaps) &&
	       strncmp(info.name, s.name, CMA_MAX_NAME) == 0;
}

bool may_match_below(struct rb_node *node, const search &s)
{
	return node && record_of(node)->subtree_last >= s.pages.low &&
	       record_of(node)->subtree_newest > s.older;
}

// Returns whether neither a record nor what comes behind it can match. A record of no pages ends
// before its first page.
bool is_behind(const struct cma_stackinfo &info, const search &s)
{
	return info.start_pfn > s.pages.high && info.start_pfn - 1 > s.pages.high;
}

// Returns the match that comes first in order of first page, or, of the matches newer than s.older,
// the newest.
struct cma_stackinfo *search_tree(search s, bool newest) REQUIRES(cma_lock)
{
	struct rb_node *node = may_match_below(records.rb_node, s) ? records.rb_node : nullptr;
	struct cma_stackinfo *found = nullptr;

	while (node) {
		if (may_match_below(node->rb_left, s)) {
			node = node->rb_left;
			continue;
		}
		for (;;) {
			struct cma_stackinfo *info = record_of(node);

			if (is_behind(*info, s))
				return found;
			if (matches(*info, s)) {
				found = info;
				if (!newest)
					return found;
				s.older = found->serial;
			}
			if (may_match_below(node->rb_right, s)) {
				node = node->rb_right;
				break;
			}
			// Up to the first node whose left subtree is done.
			struct rb_node *child = node;

			node = rb_parent(node);
			while (node && child == node->rb_right) {
				child = node;
				node = rb_parent(node);
			}
			if (!node)
				return found;
		}
	}
	return found;
}

// The newest record of exactly this range.
struct cma_stackinfo *find_equal(const char *name, unsigned long start, unsigned long end)
	REQUIRES(cma_lock)
{
	struct cma_stackinfo *info = cma_index_behind({start, ~0ULL});

	for (; info && info->start_pfn == start; info = cma_index_next(info)) {
		if (info->end_pfn == end && strncmp(info->name, name, CMA_MAX_NAME) == 0)
			return info;
	}
	return nullptr;
}

} // namespace

void cma_index_add(struct cma_stackinfo *info)
{
	const unsigned long last = span_of(info->start_pfn, info->end_pfn).high;
	const unsigned long start = info->start_pfn;
	struct rb_node **link = &records.rb_node;
	struct rb_node *parent = nullptr;

	info->serial = ++newest_serial;
	info->subtree_last = last;
	info->subtree_newest = info->serial;
	while (*link) {
		struct cma_stackinfo *above = record_of(*link);

		parent = *link;
		above->subtree_newest = info->serial;
		raise(above->subtree_last, last);
		// The newest comes first among equals.
		link = start <= above->start_pfn ? &parent->rb_left : &parent->rb_right;
	}
	rb_link_node(&info->tree, parent, link);
	helper_rb_insert_augmented(&info->tree, &records, &callbacks);
}

void cma_index_remove(struct cma_stackinfo *info)
{
	helper_rb_erase_augmented(&info->tree, &records, &callbacks);
}

void cma_index_clear(void)
{
	records = {};
}

struct cma_stackinfo *cma_index_find(const char *name, unsigned long start, unsigned long end)
{
	struct cma_stackinfo *info = find_equal(name, start, end);
	search s = {name, start, end, span_of(start, end), cma_ranked_serial};

	if (!info)
		info = search_tree(s, true);
	if (info)
		return info;
	s.older = 0;
	return search_tree(s, false);
}

void cma_index_rank(void)
{
	cma_ranked_serial = newest_serial;
}

bool cma_index_ranked(const struct cma_stackinfo &info)
{
	return info.serial <= cma_ranked_serial;
}

struct cma_stackinfo *cma_index_behind(const cma_place &place)
{
	struct cma_stackinfo *found = nullptr;

	for (struct rb_node *node = records.rb_node; node;) {
		struct cma_stackinfo *info = record_of(node);
		const bool behind = is_before(place, cma_place_of(*info));

		if (behind)
			found = info;
		node = behind ? node->rb_left : node->rb_right;
	}
	return found;
}

struct cma_stackinfo *cma_index_next(const struct cma_stackinfo *info)
{
	struct rb_node *next = rb_next(&info->tree);

	return next ? record_of(next) : nullptr;
}
