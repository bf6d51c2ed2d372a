// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/cache_index.h>

#include <tarnctl/trace/caches.h>
#include <tarnctl/trace/error.h>
#include <tarnctl/trace/line_reader.h>
#include <tarnctl/trace/parse.h>

#include <algorithm>

namespace tarn::trace
{

namespace
{

constexpr std::uint64_t lines_per_report = 1U << 16;

// The kernel's own habit for a cache of which nothing is known: a cache line.
constexpr std::uint32_t default_object_size = 64;

std::uint64_t site_key(std::uint32_t site, std::uint32_t bytes)
{
	return std::uint64_t{site} << 32 | bytes;
}

std::string no_events_reason(const recording &facts, bool seems_perf)
{
	if (facts.hidden_pointers != 0)
		return "hides all its pointers as (____ptrval____); record again, later after boot "
		       "or with the boot option no_hash_pointers";
	if (seems_perf)
		return "seems to be perf's output; record through tracefs instead, as "
		       "docs/hunt.md says";
	if (!facts.broken.empty())
		return facts.broken;
	return "is not a kernel trace with slab events; enable kmem:kmem_cache_alloc, "
	       "kmem_cache_free, kmalloc and kfree and record again";
}

} // namespace

// The reading that makes a cache_index: what is needed only while it lasts.
class cache_index::scan
{
public:
	explicit scan(cache_index &index) : index_(index) {}

	void take(const parsed_line &event);
	void finish();

private:
	// Who made a live object: a cache, or a site and size whose cache may not be known yet.
	static constexpr std::uint32_t site_bit = 1U << 31;

	struct site_size {
		std::uint32_t site;
		std::uint32_t bytes;
		std::uint32_t cache;
	};

	std::uint32_t add_cache(std::string_view name);
	std::uint32_t add_sized(u64_map &by_size, std::uint32_t bytes, const std::string &name);
	void grow_object(std::uint32_t cache, std::uint32_t bytes);
	void allocated(const parsed_line &event);
	void freed(const parsed_line &event);
	std::uint32_t maker(const parsed_line &event);

	cache_index &index_;
	u64_map live_;			    // maker by pointer
	std::vector<site_size> site_sizes_; // distinct ones
	u64_map site_sizes_seen_;	    // index in the vector by site_key()
};

std::uint32_t cache_index::scan::add_cache(std::string_view name)
{
	const std::uint32_t id = index_.names_.add(name);

	if (id == index_.caches_.size())
		index_.caches_.push_back({std::string(name), 0, is_reclaimable(name), 0});
	return id;
}

std::uint32_t cache_index::scan::add_sized(u64_map &by_size, std::uint32_t bytes,
					   const std::string &name)
{
	const std::uint32_t id = add_cache(name);

	by_size.put(bytes, id);
	grow_object(id, bytes);
	return id;
}

void cache_index::scan::grow_object(std::uint32_t cache, std::uint32_t bytes)
{
	std::uint32_t &size = index_.caches_[cache].object_size;

	size = std::max(size, bytes);
}

std::uint32_t cache_index::scan::maker(const parsed_line &event)
{
	if (!event.cache.empty()) {
		const std::uint32_t cache = add_cache(event.cache);

		grow_object(cache, event.bytes);
		return cache;
	}
	if (event.kind == op::kmalloc) {
		const std::uint32_t known = index_.kmalloc_caches_.find(event.bytes);

		return known != none ? known
				     : add_sized(index_.kmalloc_caches_, event.bytes,
						 kmalloc_name(event.bytes));
	}
	const std::uint32_t site = index_.sites_.add(event.call_site);
	const std::uint64_t key = site_key(site, event.bytes);
	std::uint32_t number = site_sizes_seen_.find(key);

	if (number == none) {
		number = static_cast<std::uint32_t>(site_sizes_.size());
		site_sizes_.push_back({site, event.bytes, none});
		site_sizes_seen_.put(key, number);
	}
	return number | site_bit;
}

void cache_index::scan::allocated(const parsed_line &event)
{
	const std::uint32_t made_by = maker(event);

	if (event.ptr != 0)
		live_.put(event.ptr, made_by);
}

// An object that, as far as known, came from another cache existed before: the free of the one that
// was known at its address is missing.
void cache_index::scan::freed(const parsed_line &event)
{
	const std::uint32_t made_by = live_.take(event.ptr);

	if (event.cache.empty())
		return;
	const std::uint32_t cache = add_cache(event.cache);
	std::uint32_t from = made_by;

	if (made_by != none && (made_by & site_bit) != 0) {
		std::uint32_t &named = site_sizes_[made_by & ~site_bit].cache;

		if (named == none)
			named = cache;
		from = named;
	}
	if (from != cache)
		index_.caches_[cache].existing++;
}

void cache_index::scan::take(const parsed_line &event)
{
	recording &facts = index_.facts_;

	if (facts.events++ == 0)
		facts.first_time = event.time;
	facts.last_time = std::max(facts.last_time, event.time);
	(is_free(event.kind) ? facts.frees : facts.allocations)++;
	if (!is_free(event.kind))
		allocated(event);
	else if (event.ptr != 0)
		freed(event);
}

void cache_index::scan::finish()
{
	for (const site_size &s : site_sizes_) {
		if (s.cache != none) {
			grow_object(s.cache, s.bytes);
			index_.site_caches_.put(site_key(s.site, s.bytes), s.cache);
		} else {
			add_sized(index_.unnamed_caches_, s.bytes,
				  "size-" + std::to_string(s.bytes));
		}
	}
	for (cache &c : index_.caches_) {
		if (c.object_size == 0)
			c.object_size = size_in_name(c.name);
		if (c.object_size == 0)
			c.object_size = default_object_size;
	}
}

cache_index::cache_index(const trace_path &path, const progress &report)
{
	line_reader lines(path);
	scan pass(*this);
	std::string_view line;
	parsed_line parsed;
	bool seems_perf = false;
	const auto damaged = [this](std::uint64_t count, std::uint64_t number) {
		if (count != 0 && facts_.damaged_lines == 0)
			facts_.first_damaged = number;
		facts_.damaged_lines += count;
	};

	while (lines.next(line)) {
		switch (parse_line(line, parsed)) {
		case line_kind::slab_event:
			pass.take(parsed);
			break;
		case line_kind::stack_header:
			facts_.stacks++;
			break;
		case line_kind::lost_events:
			facts_.lost += parsed.lost;
			break;
		case line_kind::buffer_counts:
			facts_.overwritten += parsed.lost;
			break;
		case line_kind::malformed:
			damaged(1, lines.line_number());
			if (parsed.hidden_pointer)
				facts_.hidden_pointers++;
			break;
		case line_kind::other:
			seems_perf |= line.find(" kmem:kmem_cache_") != std::string_view::npos;
			break;
		default:
			break;
		}
		if (report && lines.line_number() % lines_per_report == 0)
			report(lines.input().position(), lines.input().size());
	}
	damaged(lines.overlong_lines(), lines.line_number());
	damaged(lines.ends_cut() ? 1 : 0, lines.line_number() + 1);
	facts_.broken = lines.input().broken();
	if (!facts_.broken.empty() && !lines.ends_cut())
		damaged(1, lines.line_number() + 1);
	if (facts_.events == 0)
		throw trace_error(path.name, no_events_reason(facts_, seems_perf));
	pass.finish();
}

std::uint32_t cache_index::cache_of(const parsed_line &event) const
{
	if (!event.cache.empty())
		return names_.find(event.cache);
	if (is_free(event.kind))
		return none;
	if (event.kind == op::kmalloc)
		return kmalloc_caches_.find(event.bytes);
	const std::uint32_t site = sites_.find(event.call_site);
	const std::uint32_t known =
		site != none ? site_caches_.find(site_key(site, event.bytes)) : none;

	return known != none ? known : unnamed_caches_.find(event.bytes);
}

} // namespace tarn::trace
