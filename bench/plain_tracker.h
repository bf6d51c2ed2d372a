// SPDX-License-Identifier: GPL-2.0-only
// The baseline for the module's slab tracker: the same job with one mutex and one hash map, updated
// directly in the probe.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <kernel/sched.h>
#include <kernel/slab.h>

namespace bench
{

class plain_tracker
{
public:
	struct caller {
		std::array<unsigned long, 7> frames; // innermost first, 0 after the last
		std::array<char, TASK_COMM_LEN> comm;

		bool operator==(const caller &) const = default;
	};
	struct tally {
		int count = 0;
		std::int64_t pid_min = 0;
		std::int64_t pid_max = 0;
	};
	struct record {
		caller who;
		tally seen;
		std::int64_t total; // of all callers with these frames
	};

	explicit plain_tracker(const kmem_cache *target) : target_(target) {}

	// Probe of a slab allocation; data is the tracker.
	static void probe(void *data, void *object, unsigned long addr, kmem_cache *cache);
	void switch_on()
	{
		on_ = true;
	}
	// Empties the map and returns, and logs, the callers seen often, grouped by stack, heaviest
	// first.
	std::vector<record> read(std::size_t max_records);

	// How long the last readout held the lock.
	[[nodiscard]] std::chrono::nanoseconds held() const
	{
		return held_;
	}
	// Sets the count of every caller.
	void set_counts(int count);

private:
	struct hash {
		std::size_t operator()(const caller &who) const;
	};

	void count_event();
	std::vector<record> take(std::size_t max_records);

	const kmem_cache *const target_;
	std::atomic<bool> on_ = false;
	std::mutex lock_;
	std::unordered_map<caller, tally, hash> callers_; // under lock_
	std::chrono::nanoseconds held_{};
};

} // namespace bench
