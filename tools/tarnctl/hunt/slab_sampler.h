// SPDX-License-Identifier: GPL-2.0-only
// The kernel's own figures of all slab caches over time, from /proc/slabinfo.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarn
{

// One line of /proc/slabinfo.
struct slabinfo_line {
	std::string name;
	std::uint64_t live = 0; // objects in use, those in the CPUs' own slabs included
	std::uint64_t room = 0; // objects that fit into its slabs
	std::uint32_t object_size = 0;
};

// The lines of the text that describe a cache.
std::vector<slabinfo_line> parse_slabinfo(std::string_view text);

struct slab_point {
	std::uint64_t live = 0; // objects
	std::uint64_t room = 0;
};

struct sampled_cache {
	std::string name;
	std::uint32_t object_size = 0;
	std::optional<bool> reclaimable; // nothing where the kernel does not say
	std::vector<slab_point> points;	 // one a reading that is kept
	std::uint64_t peak = 0;		 // objects, over all readings
	std::chrono::nanoseconds peak_time{};
};

// Reads the figures whenever it is asked to. It keeps a few hundred readings, evenly spread over
// the time, however long a hunt takes. Not thread-safe.
class slab_sampler
{
public:
	// Tests pass another root directory.
	explicit slab_sampler(std::string root = "");

	// Takes the figures as those of this time; time does not go backwards. The first failure
	// is for good: from then on nothing more is read.
	void sample(std::chrono::nanoseconds now);

	// Why there are no figures, as a sentence; empty while they can be read.
	const std::string &fault() const
	{
		return fault_;
	}
	// The times of the readings that are kept; the first and the last one always are.
	const std::vector<std::chrono::nanoseconds> &times() const
	{
		return times_;
	}
	// In the order in which they were first seen.
	const std::vector<sampled_cache> &caches() const
	{
		return caches_;
	}
	const sampled_cache *find(const std::string &name) const;
	// The other names of a cache: the kernel merges caches of equal objects, and lists all
	// under the name of one. In alphabetical order; empty if the kernel does not say.
	std::vector<std::string> merged_with(const std::string &cache) const;
	std::size_t readings() const
	{
		return readings_;
	}

private:
	sampled_cache &entry(const slabinfo_line &line);
	void thin();

	std::string root_;
	std::ifstream file_; // opened once: each open would count in the hunt
	std::string fault_;
	std::vector<std::chrono::nanoseconds> times_;
	std::vector<sampled_cache> caches_;
	std::unordered_map<std::string, std::size_t> by_name_;
	std::size_t readings_ = 0;
	std::size_t stride_ = 1; // of so many readings one is kept
	bool last_is_extra_ = false;
};

// A stretch of time, both ends included.
struct time_span {
	std::chrono::nanoseconds from{};
	std::chrono::nanoseconds to{};
};

// How fast a cache grew, in objects a second: from the least that lived in the first quarter of the
// time to the least in the last one, so that what comes and goes does not count. 0 if there are too
// few readings.
double growth_per_second(const slab_sampler &slabs, const sampled_cache &cache, time_span when);

// The cache that grew fastest in bytes, of those that can leak: not what the kernel can shrink, the
// tracker's own or the leak detector's. Null if none grew.
const sampled_cache *fastest_growing(const slab_sampler &slabs, time_span when);

// Whether a cache is bookkeeping of the tracker or of the kernel's leak detector.
bool is_bookkeeping(const sampled_cache &cache);

} // namespace tarn
