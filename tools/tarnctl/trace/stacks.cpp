// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/stacks.h>

#include <algorithm>

namespace tarn::trace
{

namespace
{

std::uint64_t hash_of(std::span<const std::uint32_t> stack)
{
	std::uint64_t hash = 0xcbf29ce484222325ULL;

	for (const std::uint32_t frame : stack) {
		hash = (hash ^ frame) * 0x9fb21c651e98df25ULL;
		hash ^= hash >> 32;
	}
	return hash;
}

} // namespace

std::uint32_t stack_table::add(std::span<const std::uint32_t> stack)
{
	std::uint64_t hash = hash_of(stack);

	// Of two stacks with one hash the second is filed under the next number.
	for (;; hash++) {
		const std::uint32_t known = ids_.find(hash);

		if (known == none)
			break;
		if (std::ranges::equal((*this)[known], stack))
			return known;
	}
	const std::uint32_t id = size();
	frame_role role;

	for (const std::uint32_t frame : stack) {
		const frame_role &r = frames_.role(frame);

		role.allocator |= r.allocator;
		role.exit |= r.exit;
		role.exit_mm |= r.exit_mm;
		role.rcu |= r.rcu;
		role.pseudo |= r.pseudo;
		role.bookkeeping |= r.bookkeeping;
	}
	entries_.push_back({pool_.size(), static_cast<std::uint32_t>(stack.size()), role});
	pool_.insert(pool_.end(), stack.begin(), stack.end());
	ids_.put(hash, id);
	return id;
}

} // namespace tarn::trace
