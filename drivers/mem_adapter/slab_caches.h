// SPDX-License-Identifier: GPL-2.0-only
// The kernel's list of slab caches as a range. Hold the slab mutex while walking it.
#pragma once

#include <kernel/slab.h>

class slab_caches
{
public:
	explicit slab_caches(struct list_head *head) : head_(head) {}

	class iterator
	{
	public:
		explicit iterator(struct list_head *at) : at_(at) {}
		struct kmem_cache *operator*() const
		{
			return helper_kmem_cache_of(at_);
		}
		iterator &operator++()
		{
			at_ = at_->next;
			return *this;
		}
		bool operator!=(const iterator &other) const
		{
			return at_ != other.at_;
		}

	private:
		struct list_head *at_;
	};

	[[nodiscard]] iterator begin() const
	{
		return iterator(head_->next);
	}
	[[nodiscard]] iterator end() const
	{
		return iterator(head_);
	}

private:
	struct list_head *head_;
};
