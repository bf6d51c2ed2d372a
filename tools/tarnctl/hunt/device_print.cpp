// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/device_print.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <tarnctl/hunt/attribution.h>
#include <tarnctl/hunt/hunt_print.h>
#include <tarnctl/terminal/printable.h>
#include <tarnctl/text/figures.h>

namespace tarn
{

namespace
{

using json = nlohmann::ordered_json;
using std::chrono::nanoseconds;

constexpr std::size_t columns = 80;
constexpr std::size_t chart_columns = 40;
constexpr std::size_t caches_shown = 6;
constexpr std::size_t tasks_shown = 10;

double seconds_of(nanoseconds time)
{
	return std::chrono::duration<double>(time).count();
}

std::string time_of(nanoseconds time)
{
	return fmt::format("{:.1f} s", seconds_of(time));
}

time_span whole(const device_hunt &hunt)
{
	return {nanoseconds(0), hunt.tracked.to};
}

// Objects a second over the whole hunt.
double growth_of(const device_hunt &hunt, const sampled_cache &cache)
{
	return growth_per_second(hunt.slabs, cache, whole(hunt));
}

std::string signed_rate(double bytes_per_second)
{
	std::string text = rate_text(std::abs(bytes_per_second));

	if (bytes_per_second < 0)
		text.front() = '-';
	return text;
}

// The target's figures, if the kernel gave any.
const sampled_cache *target_of(const device_hunt &hunt)
{
	return hunt.slabs.find(hunt.result.cache);
}

// How many more objects of the target lived after the tracking than before.
std::optional<std::int64_t> grown(const device_hunt &hunt)
{
	const sampled_cache *target = target_of(hunt);

	if (!target)
		return std::nullopt;
	const auto from = std::ranges::lower_bound(hunt.slabs.times(), hunt.tracked.from);

	if (from == hunt.slabs.times().end())
		return std::nullopt;
	const slab_point &first =
		target->points[static_cast<std::size_t>(from - hunt.slabs.times().begin())];

	return static_cast<std::int64_t>(target->points.back().live - first.live);
}

std::string printable_list(const std::vector<std::string> &names)
{
	std::string list;

	for (const std::string &name : names)
		list += (list.empty() ? "" : ", ") + printable(name);
	return list;
}

class screen
{
public:
	explicit screen(const device_hunt &hunt)
		: hunt_(hunt), result_(hunt.result), target_(target_of(hunt))
	{
	}

	std::string text()
	{
		heading();
		target();
		caches();
		tasks();
		print("{}", callers_text(result_.callers));
		next();
		return fmt::to_string(out_);
	}

private:
	void heading();
	void target();
	void caches();
	void tasks();
	void next();

	template <class... Arguments>
	void print(fmt::format_string<Arguments...> format, Arguments &&...arguments)
	{
		fmt::format_to(std::back_inserter(out_), format,
			       std::forward<Arguments>(arguments)...);
	}

	const device_hunt &hunt_;
	const hunt_result &result_;
	const sampled_cache *target_;
	fmt::memory_buffer out_;
};

void screen::heading()
{
	const char *why = hunt_.choice == target_choice::named	   ? "as you asked"
			  : hunt_.choice == target_choice::fastest ? "which grew fastest"
								   : "which the module chose";

	if (result_.events && result_.events->dropped() != 0)
		print("EVENTS DROPPED: {} of {}; the counts of tasks and stacks are too low\n",
		      result_.events->dropped(), result_.events->all());
	if (!hunt_.slabs.fault().empty())
		print("NO SLAB FIGURES: {}\n", hunt_.slabs.fault());
	if (hunt_.observed.to > hunt_.observed.from)
		print("{} observed, then ", time_of(hunt_.observed.to - hunt_.observed.from));
	print("{} tracked: {}, {}\n", time_of(hunt_.tracked.to - hunt_.tracked.from),
	      printable(result_.cache), why);
	if (hunt_.observed.to > hunt_.observed.from && hunt_.choice == target_choice::module)
		print("While observed, no cache grew that can leak.\n");
	if (!hunt_.merged.empty())
		print("{}",
		      wrapped(fmt::format("the kernel has merged these caches with {}, and their "
					  "events count as its own: {}",
					  printable(result_.cache), printable_list(hunt_.merged)),
			      8, columns, "MERGED  "));
}

void screen::target()
{
	if (target_) {
		std::vector<std::uint64_t> live;

		for (const slab_point &point : target_->points)
			live.push_back(point.live);
		const std::uint64_t least = *std::ranges::min_element(live);
		const std::uint64_t size = target_->object_size;
		const double growth = growth_of(hunt_, *target_);

		print("Live: peak {} at {}, end {}, growth {} ({}, {} bytes each)\n",
		      bytes_text(target_->peak * size), time_of(target_->peak_time),
		      bytes_text(live.back() * size),
		      signed_rate(growth * static_cast<double>(size)), per_second_text(growth),
		      size);
		// A cache holds much at the start. The chart shows what came on top.
		std::ranges::for_each(live, [least](std::uint64_t &value) { value -= least; });
		print("  {} live  {}  {} to {}\n", printable(result_.cache),
		      chart(live, chart_columns), least, target_->peak);
	}
	if (result_.events)
		print("{}", wrapped(event_counts_text(*result_.events), 8, columns, "Events: "));
	print("Slabs: {} KiB before tracking, {} KiB after ({:+} KiB), free room included\n",
	      result_.target.start_kib, result_.target.end_kib, result_.target.delta_kib);
}

void screen::caches()
{
	std::vector<std::pair<double, const sampled_cache *>> growing;
	bool any_shrinks = false;

	for (const sampled_cache &cache : hunt_.slabs.caches()) {
		const double growth = growth_of(hunt_, cache) * cache.object_size;

		if (growth > 0 && !is_bookkeeping(cache))
			growing.emplace_back(growth, &cache);
	}
	if (hunt_.slabs.caches().empty())
		return;
	std::ranges::stable_sort(growing, std::greater{},
				 &std::pair<double, const sampled_cache *>::first);
	print("\nCACHES{:<28}{:>10}{:>12}{:>14}\n", "", "own peak", "end", "growth");
	for (std::size_t i = 0; i < growing.size() && i < caches_shown; i++) {
		const auto &[growth, cache] = growing[i];
		const bool shrinks = cache->reclaimable.value_or(false);

		any_shrinks = any_shrinks || shrinks;
		print("  {:<32}{:>10}{:>12}{:>14}{}\n", shortened(printable(cache->name), 32),
		      bytes_text(cache->peak * cache->object_size),
		      bytes_text(cache->points.back().live * cache->object_size), rate_text(growth),
		      shrinks ? " r" : "");
	}
	if (any_shrinks)
		print("  r: the kernel can shrink it\n");
	if (growing.empty())
		print("  none grew\n");
}

void screen::tasks()
{
	const std::vector<task_balance> all = task_balances(result_.callers);
	const std::string doubt = why_uncertain(result_.callers, grown(hunt_), result_.events);

	if (all.empty())
		return;
	print("\nTASKS{:<13}{:>14}{:>12}{:>10}{:>12}\n", "", "pids", "allocated", "freed",
	      doubt.empty() ? "held" : "uncertain");
	for (std::size_t i = 0; i < all.size() && i < tasks_shown; i++) {
		const task_balance &task = all[i];
		const std::string pids =
			task.comm.empty() ? "-"
			: task.pid_min == task.pid_max
				? fmt::format("{}", task.pid_min)
				: fmt::format("{}..{}", task.pid_min, task.pid_max);

		print("  {:<16}{:>14}{:>12}{:>10}",
		      task.comm.empty() ? "(interrupt)" : printable(task.comm), pids,
		      task.allocated, task.freed);
		if (task.difference() > 0) {
			print("{:>12}", task.difference());
			if (doubt.empty() && result_.object_size)
				print("  {}",
				      bytes_text(static_cast<std::uint64_t>(task.difference()) *
						 *result_.object_size));
		}
		print("\n");
	}
	if (all.size() > tasks_shown)
		print("  and {} tasks more\n", all.size() - tasks_shown);
	print("  Counts are lower bounds: a task's calls along a path that came less than 50\n"
	      "  times are left out. Of several pids, the lowest and the highest are shown.\n");
	if (!doubt.empty())
		print("\n{}", wrapped(fmt::format("who holds objects of {}: {}",
						  printable(result_.cache), doubt),
				      11, columns, "UNCERTAIN  "));
}

void screen::next()
{
	print("\nNext: to see each object, who holds it and since when, record with the kernel's\n"
	      "tracing (docs/hunt.md says how), and on a workstation hunt in the recording:\n"
	      "  adb shell cat /sys/kernel/tracing/trace | tarnctl hunt --trace -\n");
}

json live_of(const device_hunt &hunt, const sampled_cache &target)
{
	const std::uint64_t size = target.object_size;
	json samples = json::array();

	for (std::size_t i = 0; i < target.points.size(); i++)
		samples.push_back(
			{seconds_of(hunt.slabs.times()[i]), target.points[i].live * size});
	return {{"peak_bytes", target.peak * size},
		{"peak_seconds", seconds_of(target.peak_time)},
		{"end_bytes", target.points.back().live * size},
		{"samples", std::move(samples)}};
}

json caches_of(const device_hunt &hunt)
{
	std::vector<const sampled_cache *> ranking;
	json list = json::array();

	for (const sampled_cache &cache : hunt.slabs.caches())
		ranking.push_back(&cache);
	std::ranges::stable_sort(ranking, std::greater{}, [](const sampled_cache *cache) {
		return cache->peak * cache->object_size;
	});
	for (const sampled_cache *cache : ranking) {
		json row = {{"name", cache->name},
			    {"object_size", cache->object_size},
			    {"live_end", cache->points.back().live},
			    {"live_peak", cache->peak},
			    {"footprint_end", cache->points.back().room * cache->object_size},
			    {"bytes_per_second", growth_of(hunt, *cache) * cache->object_size}};

		if (cache->reclaimable)
			row["reclaimable"] = *cache->reclaimable;
		list.push_back(std::move(row));
	}
	return list;
}

json trust_of(const device_hunt &hunt)
{
	std::int64_t without_stack = 0;
	std::int64_t in_interrupts = 0;

	for (const auto *kind : {&hunt.result.callers.alloc, &hunt.result.callers.free}) {
		for (const caller_record &record : *kind) {
			if (record.frames.empty())
				without_stack += record.count;
		}
	}
	for (const caller_record &record : hunt.result.callers.free) {
		if (record.comm.empty())
			in_interrupts += record.count;
	}
	return {{"slab_readings", hunt.slabs.readings()},
		{"without_stack", without_stack},
		{"interrupt_frees", in_interrupts}};
}

json tasks_of(const device_hunt &hunt)
{
	json list = json::array();

	for (const task_balance &task : task_balances(hunt.result.callers))
		list.push_back({{"comm", task.comm},
				{"pid_min", task.pid_min},
				{"pid_max", task.pid_max},
				{"allocated", task.allocated},
				{"freed", task.freed}});
	return list;
}

// As in a trace: what looks held, but cannot be judged.
json uncertain_of(const device_hunt &hunt)
{
	const std::string reason =
		why_uncertain(hunt.result.callers, grown(hunt), hunt.result.events);
	json comms = json::array();
	std::int64_t objects = 0;

	for (const task_balance &task : task_balances(hunt.result.callers)) {
		if (task.difference() <= 0)
			continue;
		comms.push_back(task.comm);
		objects += task.difference();
	}
	if (reason.empty() || objects == 0)
		return json::array();
	const caller_record &heaviest = hunt.result.callers.alloc.front();

	return json::array({{{"cache", hunt.result.cache},
			     {"call_site",
			      heaviest.frames.empty() ? heaviest.handle : heaviest.frames.front()},
			     {"comms", std::move(comms)},
			     {"objects", objects},
			     {"bytes", objects * static_cast<std::int64_t>(
							 hunt.result.object_size.value_or(0))},
			     {"reason", reason}}});
}

} // namespace

std::string device_hunt_text(const device_hunt &hunt)
{
	return screen(hunt).text();
}

std::string device_hunt_json(const device_hunt &hunt)
{
	json object = {{"schema", "tarnctl.hunt/2"}};
	const sampled_cache *target = target_of(hunt);

	object.update(hunt_members(hunt.result));
	object["trust"] = trust_of(hunt);
	if (target)
		object["live"] = live_of(hunt, *target);
	object["merged"] = hunt.merged;
	object["caches"] = caches_of(hunt);
	object["tasks"] = tasks_of(hunt);
	// Who holds an object cannot be known without its address.
	object["held"] = json::array();
	object["suspects"] = json::array();
	object["uncertain"] = uncertain_of(hunt);

	// A task name need not be UTF-8.
	return object.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace tarn
