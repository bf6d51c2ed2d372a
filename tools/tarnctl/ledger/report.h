// SPDX-License-Identifier: GPL-2.0-only
// What a ledger tells, in the order in which it is shown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tarnctl/ledger/ledger.h>

namespace tarn::ledger
{

struct held_task {
	std::string comm; // empty: interrupts
	std::int32_t pid = 0;
	std::uint64_t objects = 0; // at the moment that is shown
	std::uint64_t allocated = 0;
	std::uint64_t exit_freed = 0;
};

// What is held at the moment along one stack of one cache.
struct held_stack {
	std::uint32_t cache = 0;
	std::uint32_t stack = 0;
	std::uint64_t objects = 0;
	std::uint64_t bytes = 0;
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;
	lifetimes lived;
	std::vector<held_task> tasks; // most objects first
};

enum class stack_order { bytes, objects, allocated };

// The stacks that hold something, those that hold most first.
std::vector<held_stack> held_stacks(const ledger &account, stack_order order = stack_order::bytes);

// A task that is accused of keeping objects of one cache.
struct suspect {
	std::uint32_t cache = 0;
	std::uint32_t task = 0;
	std::string comm;
	std::int32_t pid = 0;
	finding found = finding::innocent;
	std::string evidence;
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;   // before its exit
	std::uint64_t objects = 0; // live at the end, or freed by the exit
	std::uint64_t bytes = 0;
	double objects_per_second = 0;
	double bytes_per_second = 0;
	timeline counts;
};

// The program that keeps most bytes first; of a program first what has a cache of its own type.
std::vector<suspect> suspects(const ledger &account);

// A kind of object that may leak, but that cannot be judged.
struct doubt {
	std::uint32_t cache = 0;
	std::uint32_t site = 0; // frame
	std::string reason;
	std::vector<std::string> comms;
	std::uint64_t objects = 0;
	std::uint64_t bytes = 0;
};

// Most bytes first.
std::vector<doubt> doubts(const ledger &account);

enum class cache_order { peak, end, allocated };

// The numbers of all caches, those with most first.
std::vector<std::uint32_t> cache_ranking(const ledger &account, cache_order order);

// The names of a cache's objects: files of filp, objects elsewhere.
std::string noun_of(const std::string &cache);

} // namespace tarn::ledger
