// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_names.h"
#include "trace_number_map.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::trace
{

struct parsed_line;

/** A cache that the events of a trace belong to. */
struct cache {
	std::string name;
	std::uint32_t object_size = 0; /**< bytes */
	bool reclaimable = false;
	std::uint64_t existing = 0; /**< objects released in the trace but not allocated there */
};

/**
 * The caches of a trace, found by reading it once from end to end, which also checks every line.
 * Most kernels do not name the cache of an allocation; that is learnt from where its objects are
 * released. Safe to read from several threads once it is made.
 */
class directory
{
public:
	/** Told the bytes of the file read so far and all of them, every so often. */
	using progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

	/** Throws trace_error if the file is not a sound trace with slab events. */
	explicit directory(const std::string &path, const progress &report = {});

	/** By number, from 0. */
	const std::vector<cache> &caches() const
	{
		return caches_;
	}

	/** Lines of slab events in the file. */
	std::uint64_t event_lines() const
	{
		return event_lines_;
	}

	/** The cache that an event other than a kfree belongs to; none if it was not in the file.
	 */
	std::uint32_t cache_of(const parsed_line &event) const;

private:
	class scan;

	name_table names_;
	std::vector<cache> caches_;
	name_table sites_;
	std::vector<std::uint32_t> site_caches_; /**< by site; none: by object size */
	number_map kmalloc_caches_;		 /**< by object size plus 1 */
	number_map unnamed_caches_;		 /**< likewise */
	std::uint64_t event_lines_ = 0;
};

} // namespace tarn::trace
