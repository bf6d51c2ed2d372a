// SPDX-License-Identifier: GPL-2.0-only
#include "trace_directory.h"

#include "trace_caches.h"
#include "trace_error.h"
#include "trace_line_reader.h"
#include "trace_parse.h"

#include <algorithm>

namespace tarn::trace
{

namespace
{

constexpr std::uint64_t lines_per_report = 1U << 16;

/* The kernel's own habit for a cache of which nothing is known: a cache line. */
constexpr std::uint32_t default_object_size = 64;

} // namespace

/** The reading that makes a directory: what is needed only while it lasts. */
class directory::scan
{
public:
	explicit scan(directory &dir) : dir_(dir) {}

	void take(const parsed_line &event);
	void finish();

private:
	/* Who made a live object: a cache, or a site whose cache may not be known yet. */
	static constexpr std::uint32_t site_bit = 1U << 31;

	struct site_size {
		std::uint32_t site;
		std::uint32_t bytes;
	};

	std::uint32_t add_cache(std::string_view name);
	std::uint32_t add_sized(number_map &by_size, std::uint32_t bytes, const std::string &name);
	void grow_object(std::uint32_t cache, std::uint32_t bytes);
	void allocated(const parsed_line &event);
	void released(const parsed_line &event);
	std::uint32_t maker(const parsed_line &event);

	directory &dir_;
	number_map live_;		    /* maker by pointer */
	std::vector<site_size> site_sizes_; /* distinct ones */
	number_map site_sizes_seen_;
};

std::uint32_t directory::scan::add_cache(std::string_view name)
{
	const std::uint32_t id = dir_.names_.add(name);
	if (id == dir_.caches_.size())
		dir_.caches_.push_back({std::string(name), 0, is_reclaimable(name), 0});
	return id;
}

std::uint32_t directory::scan::add_sized(number_map &by_size, std::uint32_t bytes,
					 const std::string &name)
{
	const std::uint32_t id = add_cache(name);
	by_size.put(std::uint64_t{bytes} + 1, id);
	grow_object(id, bytes);
	return id;
}

void directory::scan::grow_object(std::uint32_t cache, std::uint32_t bytes)
{
	std::uint32_t &size = dir_.caches_[cache].object_size;
	size = std::max(size, bytes);
}

std::uint32_t directory::scan::maker(const parsed_line &event)
{
	if (event.kind == op::kmalloc) {
		const std::uint32_t known =
			dir_.kmalloc_caches_.find(std::uint64_t{event.bytes} + 1);
		return known != none ? known
				     : add_sized(dir_.kmalloc_caches_, event.bytes,
						 kmalloc_name(event.bytes));
	}
	if (!event.cache.empty()) {
		const std::uint32_t cache = add_cache(event.cache);
		grow_object(cache, event.bytes);
		return cache;
	}
	const std::uint32_t site = dir_.sites_.add(event.call_site);
	if (site == dir_.site_caches_.size())
		dir_.site_caches_.push_back(none);
	if (site_sizes_seen_.put((std::uint64_t{site} + 1) << 32 | event.bytes, 0) == none)
		site_sizes_.push_back({site, event.bytes});
	return site | site_bit;
}

void directory::scan::allocated(const parsed_line &event)
{
	const std::uint32_t made_by = maker(event);
	if (event.ptr != 0)
		live_.put(event.ptr, made_by);
}

/* A release of an object that, as far as known, came from another cache is one of an object that
 * existed before: the other's own release must have been lost. */
void directory::scan::released(const parsed_line &event)
{
	const std::uint32_t made_by = live_.take(event.ptr);
	if (event.kind == op::kfree)
		return;
	const std::uint32_t cache = add_cache(event.cache);
	std::uint32_t from = made_by;
	if (made_by != none && (made_by & site_bit) != 0) {
		std::uint32_t &named = dir_.site_caches_[made_by & ~site_bit];
		if (named == none)
			named = cache;
		from = named;
	}
	if (from != cache)
		dir_.caches_[cache].existing++;
}

void directory::scan::take(const parsed_line &event)
{
	dir_.event_lines_++;
	if (!is_free(event.kind))
		allocated(event);
	else if (event.ptr != 0)
		released(event);
}

void directory::scan::finish()
{
	for (const site_size &s : site_sizes_) {
		const std::uint32_t cache = dir_.site_caches_[s.site];
		if (cache != none)
			grow_object(cache, s.bytes);
		else
			add_sized(dir_.unnamed_caches_, s.bytes, "size-" + std::to_string(s.bytes));
	}
	for (cache &c : dir_.caches_) {
		if (c.object_size == 0)
			c.object_size = size_in_name(c.name);
		if (c.object_size == 0)
			c.object_size = default_object_size;
	}
}

directory::directory(const std::string &path, const progress &report)
{
	line_reader lines(path);
	scan pass(*this);
	std::string_view line;
	parsed_line parsed;
	while (lines.next(line)) {
		switch (parse_line(line, parsed)) {
		case line_kind::slab_event:
			pass.take(parsed);
			break;
		case line_kind::malformed:
			throw trace_error(path, lines.line_number(),
					  "the event is cut or malformed");
		default:
			break;
		}
		if (report && lines.line_number() % lines_per_report == 0)
			report(lines.input().position(), lines.input().size());
	}
	if (event_lines_ == 0)
		throw trace_error(path, "is not a kernel trace with slab events");
	if (lines.ends_cut())
		throw trace_error(path, lines.line_number() + 1, "the line is cut off");
	pass.finish();
}

std::uint32_t directory::cache_of(const parsed_line &event) const
{
	if (event.kind == op::kmalloc)
		return kmalloc_caches_.find(std::uint64_t{event.bytes} + 1);
	if (!event.cache.empty())
		return names_.find(event.cache);
	const std::uint32_t site = sites_.find(event.call_site);
	if (site == none)
		return none;
	if (site_caches_[site] != none)
		return site_caches_[site];
	return unnamed_caches_.find(std::uint64_t{event.bytes} + 1);
}

} // namespace tarn::trace
