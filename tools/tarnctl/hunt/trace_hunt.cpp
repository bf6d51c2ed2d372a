// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/trace_hunt.h>

#include <optional>

#include <fmt/format.h>

#include <tarnctl/hunt/hunt_hosted.h>
#include <tarnctl/hunt/hunt_print.h>
#include <tarnctl/ledger/analysis.h>
#include <tarnctl/ledger/ledger_json.h>
#include <tarnctl/ledger/screen.h>
#include <tarnctl/text/near_match.h>
#include <tarnctl/text/quantity.h>
#include <tarnctl/trace/spool.h>

namespace tarn
{

namespace
{

ledger::moment moment_of(const std::string &text)
{
	if (text == "end")
		return {};
	if (text == "peak")
		return {ledger::moment::kind::peak, 0};
	const std::optional<std::chrono::nanoseconds> time = parse_time(text);

	if (!time)
		throw hunt_error("\"" + text + "\" is no time");
	return {ledger::moment::kind::time, static_cast<std::uint64_t>(time->count())};
}

ledger::selection selection_of(const trace_hunt_options &options)
{
	return {options.cache, options.pids, options.comms,  options.functions,
		options.from,  options.to,   options.min_age};
}

ledger::stack_order order_of(const std::string &sort)
{
	return sort == "objects"     ? ledger::stack_order::objects
	       : sort == "allocated" ? ledger::stack_order::allocated
				     : ledger::stack_order::bytes;
}

void check_cache(const trace::cache_index &index, const std::string &name)
{
	if (name.empty() || index.find(name) != trace::none)
		return;
	std::vector<std::string> known;
	std::string near;

	for (const trace::cache &cache : index.caches())
		known.push_back(cache.name);
	for (const std::string &other : near_matches(name, known))
		near += (near.empty() ? "; is it " : " or ") + other;
	// Its objects may be there all the same, in a cache that the kernel has merged it with.
	throw unknown_cache(fmt::format("the trace has no events of a cache named \"{}\"{} (merged "
					"caches go by one name; `tarnctl caches` lists all)",
					name, near.empty() ? "" : near + "?"));
}

// What the module is to track: the cache that was named, or that of the first suspect. An empty
// name leaves the choice to the module.
std::string target_of(const ledger::analysis &a, const trace_hunt_options &options)
{
	if (!options.cache.empty() || options.automatic)
		return options.cache;
	const std::vector<ledger::suspect> suspects = ledger::suspects(*a.account);

	return suspects.empty() ? "" : a.index.caches()[suspects.front().cache].name;
}

// Where the module finds nothing to track by itself, it gets the cache that held most.
hunt_result module_hunt(const ledger::analysis &a, const trace_hunt_options &options,
			const trace::trace_path &path)
{
	const std::string target = target_of(a, options);

	try {
		return hunt_trace(path, a.index, target);
	} catch (const hunt_error &) {
		if (!target.empty())
			throw;
	}
	const std::uint32_t largest =
		ledger::cache_ranking(*a.account, ledger::cache_order::peak).front();

	return hunt_trace(path, a.index, a.index.caches()[largest].name);
}

int status_of(const ledger::analysis &a, bool strict)
{
	return strict && !a.index.facts().sound() ? exit_damaged : 0;
}

std::string dump(const nlohmann::ordered_json &object)
{
	// A task name need not be UTF-8.
	return object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace

bool can_hunt_traces()
{
	return true;
}

trace_hunt_output run_trace_hunt(const trace_hunt_options &options)
{
	const trace::spooled_trace trace(options.path);
	const ledger::moment shown = moment_of(options.live_at);
	const auto a = ledger::analyse(trace.path(), selection_of(options), shown);
	const ledger::stack_order order = order_of(options.sort);
	trace_hunt_output output;
	std::optional<hunt_result> result;

	check_cache(a->index, options.cache);
	if (options.json || options.readout || options.log) {
		result = module_hunt(*a, options, trace.path());
		output.log = result->log;
	}
	output.status = status_of(*a, options.strict);
	if (options.json) {
		nlohmann::ordered_json object = {{"schema", "tarnctl.hunt/2"}};

		object.update(hunt_members(*result));
		ledger::add_ledger_members(object, *a->account, options.top, options.frames, order);
		output.text = dump(object);
		return output;
	}
	output.text = ledger::screen_text(
		*a->account, shown,
		{options.path, options.top, options.frames, order, options.stacks});
	if (options.readout)
		output.text += "\nWhat the module recorded:\n\n" + hunt_text(*result);
	return output;
}

trace_hunt_output run_trace_caches(const trace_hunt_options &options)
{
	const trace::spooled_trace trace(options.path);
	const auto a = ledger::analyse(trace.path(), {}, {});
	const ledger::cache_order order = options.sort == "end" ? ledger::cache_order::end
					  : options.sort == "allocated"
						  ? ledger::cache_order::allocated
						  : ledger::cache_order::peak;
	trace_hunt_output output;

	output.status = status_of(*a, options.strict);
	output.text = options.json ? dump(ledger::caches_json(*a->account, order, options.top))
				   : ledger::caches_text(*a->account, order, options.top);
	return output;
}

} // namespace tarn
