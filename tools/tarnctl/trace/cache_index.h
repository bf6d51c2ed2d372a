// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/recording.h>
#include <tarnctl/trace/source.h>
#include <tarnctl/trace/string_pool.h>
#include <tarnctl/trace/u64_map.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::trace
{

struct parsed_line;

// A cache that the events of a trace belong to.
struct cache {
	std::string name;
	std::uint32_t object_size = 0; // bytes
	bool reclaimable = false;
	std::uint64_t existing = 0; // objects freed in the trace but not allocated there
};

// The caches of a trace, found by reading it once from end to end, which also counts what is lost
// or damaged. Most kernels do not name the cache of an allocation; that is learnt from where the
// objects of its call site and size are freed. Safe to read from several threads once it is made.
class cache_index
{
public:
	// Called every so often with the bytes of the file read so far and all of them.
	using progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

	// Damaged lines are passed over. Throws trace_error if the file cannot be read or has no
	// slab events.
	explicit cache_index(const trace_path &path, const progress &report = {});

	// By number, from 0.
	const std::vector<cache> &caches() const
	{
		return caches_;
	}

	const recording &facts() const
	{
		return facts_;
	}

	// The number of the cache with that name, or none.
	std::uint32_t find(std::string_view name) const
	{
		return names_.find(name);
	}

	// The cache that an event belongs to; none for a free that does not name it, or if it was
	// not in the file.
	std::uint32_t cache_of(const parsed_line &event) const;

private:
	class scan;

	string_pool names_;
	std::vector<cache> caches_;
	string_pool sites_;
	u64_map site_caches_;	 // by site and object size
	u64_map kmalloc_caches_; // by object size
	u64_map unnamed_caches_; // likewise
	recording facts_;
};

} // namespace tarn::trace
