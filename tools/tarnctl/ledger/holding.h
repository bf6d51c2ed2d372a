// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

namespace tarn::ledger
{

// When the objects of a set were allocated, over a stretch of time in sixteen slices.
struct spread {
	static constexpr unsigned int slices = 16;

	std::array<std::uint32_t, slices> counts = {};

	void add(std::uint64_t time, std::uint64_t from, std::uint64_t to);
	unsigned int used() const; // slices with objects
	std::uint32_t largest() const;
	std::uint32_t total() const;
};

// The least that lived in each slice of such a stretch.
using slice_floors = std::array<std::uint32_t, spread::slices>;

// All that the verdict on one kind of object in one task's hands rests on. A kind is a cache and
// the call site that allocates; times are in ns.
struct holding {
	// Of the objects that the task allocated.
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;
	std::uint64_t exit_freed = 0;	  // with do_exit in the freeing stack
	std::uint64_t exit_bytes = 0;	  // of those
	std::uint64_t address_space = 0;  // of those: while the address space was torn down
	std::uint64_t deferred_freed = 0; // by RCU or in an interrupt
	std::uint64_t live = 0;		  // at the end
	std::uint64_t live_bytes = 0;
	std::uint64_t most = 0; // that lived at once
	std::uint64_t most_bytes = 0;

	// Over the recording.
	std::uint64_t length = 0;
	slice_floors floors = {};
	std::uint64_t old = 0; // live at the end, allocated in the first half
	spread ages;	       // of what lives at the end, from the first allocation to the end

	// Over the task's life, as far as it was recorded.
	bool ended = false;
	std::uint64_t life = 0;
	slice_floors life_floors = {};
	std::uint64_t holding_time = 0; // from the first allocation to the exit

	// Of the kind, whoever allocated.
	std::uint64_t kind_freed = 0;
	std::uint64_t kind_unseen = 0;
	bool reclaimable = false;
	bool bookkeeping = false; // of the slab allocator itself

	// Frees of this task's objects that may be among the lost events.
	std::uint64_t maybe_lost = 0;
};

} // namespace tarn::ledger
