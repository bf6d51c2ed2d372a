// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/ledger_json.h>

#include <algorithm>

namespace tarn::ledger
{

namespace
{

using json = nlohmann::ordered_json;

double seconds(std::uint64_t ns)
{
	return static_cast<double>(ns) / 1e9;
}

json trust_of(const ledger &account)
{
	const trace::recording &facts = account.index().facts();
	const trust &t = account.losses();

	return {{"events", facts.events},	    {"lost", facts.lost + facts.overwritten},
		{"without_stack", t.without_stack}, {"unmatched_frees", t.unmatched_frees},
		{"unseen_frees", t.unseen_frees},   {"damaged_lines", facts.damaged_lines}};
}

json live_of(const ledger &account)
{
	json samples = json::array();
	const std::vector<std::uint64_t> &ends = account.live().ends();

	for (std::size_t part = 0; part < ends.size(); part++)
		samples.push_back({seconds(account.part_end(part)), ends[part]});
	return {{"peak_bytes", account.peak_bytes()},
		{"peak_seconds", seconds(account.peak_time())},
		{"end_bytes", account.end_bytes()},
		{"samples", std::move(samples)}};
}

json caches_of(const ledger &account, const std::vector<std::uint32_t> &ranking, std::size_t top)
{
	json list = json::array();

	for (const std::uint32_t number : ranking) {
		const trace::cache &known = account.index().caches()[number];
		const cache_account &c = account.caches()[number];

		if (top != 0 && list.size() == top)
			break;
		list.push_back({{"name", known.name},
				{"object_size", known.object_size},
				{"allocated", c.allocated},
				{"freed", c.freed},
				{"live_end", c.live},
				{"live_peak", c.peak}});
	}
	return list;
}

json held_of(const ledger &account, std::size_t top, std::size_t frames, stack_order order)
{
	json list = json::array();

	for (const held_stack &s : held_stacks(account, order)) {
		json shown = json::array();
		json tasks = json::array();

		if (top != 0 && list.size() == top)
			break;
		for (const std::uint32_t frame : account.stacks()[s.stack]) {
			if (frames == 0 || shown.size() < frames)
				shown.push_back(account.stacks().frames().text(frame));
		}
		for (const held_task &t : s.tasks)
			tasks.push_back({{"comm", t.comm},
					 {"pid", t.pid},
					 {"objects", t.objects},
					 {"allocated", t.allocated},
					 {"exit_freed", t.exit_freed}});
		list.push_back({{"cache", account.index().caches()[s.cache].name},
				{"objects", s.objects},
				{"bytes", s.bytes},
				{"allocated", s.allocated},
				{"freed", s.freed},
				{"frames", std::move(shown)},
				{"tasks", std::move(tasks)}});
	}
	return list;
}

json suspects_of(const ledger &account)
{
	json list = json::array();

	for (const suspect &s : suspects(account))
		list.push_back({{"cache", account.index().caches()[s.cache].name},
				{"comm", s.comm},
				{"pid", s.pid},
				{"evidence", s.evidence},
				{"objects", s.objects},
				{"bytes", s.bytes},
				{"bytes_per_second", s.bytes_per_second}});
	return list;
}

json uncertain_of(const ledger &account)
{
	json list = json::array();

	for (const doubt &d : doubts(account))
		list.push_back({{"cache", account.index().caches()[d.cache].name},
				{"call_site", account.stacks().frames().text(d.site)},
				{"comms", d.comms},
				{"objects", d.objects},
				{"bytes", d.bytes},
				{"reason", d.reason}});
	return list;
}

} // namespace

void add_ledger_members(json &object, const ledger &account, std::size_t top, std::size_t frames,
			stack_order order)
{
	object["trust"] = trust_of(account);
	object["live"] = live_of(account);
	object["caches"] = caches_of(account, cache_ranking(account, cache_order::peak), 0);
	object["held"] = held_of(account, top, frames, order);
	object["suspects"] = suspects_of(account);
	object["uncertain"] = uncertain_of(account);
}

json caches_json(const ledger &account, cache_order order, std::size_t top)
{
	return {{"schema", "tarnctl.caches/1"},
		{"trust", trust_of(account)},
		{"caches", caches_of(account, cache_ranking(account, order), top)}};
}

} // namespace tarn::ledger
