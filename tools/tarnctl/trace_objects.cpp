// SPDX-License-Identifier: GPL-2.0-only
#include "trace_objects.h"

namespace tarn::trace
{

std::uint32_t object_table::add(std::uint64_t ptr, std::uint32_t cache, std::uint32_t &displaced)
{
	std::uint32_t id = 0;
	if (free_.empty()) {
		id = static_cast<std::uint32_t>(caches_.size());
		caches_.push_back(cache);
	} else {
		id = free_.back();
		free_.pop_back();
		caches_[id] = cache;
	}
	displaced = ids_.put(ptr, id);
	if (displaced != none)
		free_.push_back(displaced);
	return id;
}

object object_table::take(std::uint64_t ptr)
{
	const std::uint32_t id = ids_.take(ptr);
	if (id == none)
		return {};
	free_.push_back(id);
	return {id, caches_[id]};
}

} // namespace tarn::trace
