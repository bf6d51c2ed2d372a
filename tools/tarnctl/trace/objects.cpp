// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/objects.h>

namespace tarn::trace
{

std::uint32_t object_table::add(std::uint64_t ptr, std::uint32_t cache, bool guessed,
				std::uint32_t &displaced)
{
	auto id = static_cast<std::uint32_t>(objects_.size());

	if (free_.empty()) {
		objects_.emplace_back();
	} else {
		id = free_.back();
		free_.pop_back();
	}
	objects_[id] = {id, cache, guessed};
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
	return objects_[id];
}

} // namespace tarn::trace
