// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/report.h>

#include <algorithm>
#include <array>
#include <map>
#include <numeric>
#include <tuple>

namespace tarn::ledger
{

namespace
{

std::uint64_t weight(const held_stack &s, stack_order order)
{
	switch (order) {
	case stack_order::objects:
		return s.objects;
	case stack_order::allocated:
		return s.allocated;
	case stack_order::bytes:
		break;
	}
	return s.bytes;
}

} // namespace

std::vector<held_stack> held_stacks(const ledger &account, stack_order order)
{
	std::map<std::pair<std::uint32_t, std::uint32_t>, held_stack> by_stack;

	for (const group &g : account.groups()) {
		if (!g.selected || g.allocated == 0)
			continue;
		held_stack &s = by_stack[{g.cache, g.stack}];
		const task &t = account.task_of(g.task);

		s.cache = g.cache;
		s.stack = g.stack;
		s.objects += g.held;
		s.bytes += g.held_bytes;
		s.allocated += g.allocated;
		s.freed += g.freed;
		s.lived.merge(g.lived);
		s.tasks.push_back({t.comm, t.pid, g.held, g.allocated, g.exit_freed});
	}
	std::vector<held_stack> stacks;

	for (auto &[key, s] : by_stack) {
		if (s.objects == 0)
			continue;
		std::ranges::stable_sort(s.tasks, std::greater{}, [](const held_task &t) {
			return std::pair(t.objects, t.allocated);
		});
		stacks.push_back(std::move(s));
	}
	std::ranges::stable_sort(stacks, std::greater{}, [order](const held_stack &s) {
		return std::tuple(weight(s, order), s.bytes, s.objects);
	});
	return stacks;
}

std::vector<suspect> suspects(const ledger &account)
{
	std::map<std::pair<std::uint32_t, std::uint32_t>, suspect> by_task;

	for (const holder &h : account.holders()) {
		const holding &f = h.facts;
		const finding found = h.verdict.found;

		if (found != finding::leaks && found != finding::keeps_till_exit)
			continue;
		suspect &s = by_task[{h.cache, h.task}];
		const bool leaks = found == finding::leaks;

		s.cache = h.cache;
		s.task = h.task;
		s.comm = account.task_of(h.task).comm;
		s.pid = account.task_of(h.task).pid;
		s.found = found;
		s.evidence += (s.evidence.empty() ? "" : "; ") + h.verdict.reason;
		s.allocated += f.allocated;
		s.freed += leaks ? f.freed : f.freed - f.exit_freed;
		s.objects += leaks ? f.live : f.exit_freed;
		s.bytes += leaks ? f.live_bytes : f.exit_bytes;
		s.objects_per_second += h.verdict.objects_per_second;
		s.bytes_per_second += h.verdict.bytes_per_second;
		timeline counts = h.counts;

		counts.extend(ledger::points);
		s.counts.extend(ledger::points);
		s.counts.add(counts);
	}
	// Programs that keep most come first, all that is theirs together. What has a cache of its
	// own type says more than what has one of its size.
	std::map<std::string, std::uint64_t> by_program;
	std::vector<suspect> all;

	for (auto &[key, s] : by_task) {
		by_program[s.comm] += s.bytes;
		all.push_back(std::move(s));
	}
	std::ranges::stable_sort(all, std::greater{}, [&](const suspect &s) {
		const std::string &cache = account.index().caches()[s.cache].name;
		const bool typed = !cache.starts_with("kmalloc-") && !cache.starts_with("size-");

		return std::tuple(by_program[s.comm], s.comm, typed, s.objects);
	});
	return all;
}

std::vector<doubt> doubts(const ledger &account)
{
	std::map<std::tuple<std::uint32_t, std::uint32_t, std::string>, doubt> by_kind;

	for (const holder &h : account.holders()) {
		if (h.verdict.found != finding::uncertain)
			continue;
		doubt &d = by_kind[{h.cache, h.site, h.verdict.reason}];
		const holding &f = h.facts;
		const std::string &comm = account.task_of(h.task).comm;

		d.cache = h.cache;
		d.site = h.site;
		d.reason = h.verdict.reason;
		if (std::ranges::find(d.comms, comm) == d.comms.end())
			d.comms.push_back(comm);
		d.objects += f.live != 0 ? f.live : f.most;
		d.bytes += f.live != 0 ? f.live_bytes : f.most_bytes;
	}
	std::vector<doubt> all;

	all.reserve(by_kind.size());

	for (auto &[key, d] : by_kind)
		all.push_back(std::move(d));
	std::ranges::stable_sort(all, std::greater{}, &doubt::bytes);
	return all;
}

std::vector<std::uint32_t> cache_ranking(const ledger &account, cache_order order)
{
	const std::vector<cache_account> &caches = account.caches();
	std::vector<std::uint32_t> ranking(caches.size());

	std::iota(ranking.begin(), ranking.end(), 0U);
	std::ranges::stable_sort(ranking, std::greater{}, [&](std::uint32_t number) {
		const cache_account &c = caches[number];

		return order == cache_order::peak  ? c.peak_bytes
		       : order == cache_order::end ? c.live_bytes
						   : c.allocated;
	});
	return ranking;
}

std::string noun_of(const std::string &cache)
{
	constexpr std::array<std::pair<const char *, const char *>, 6> nouns = {{
		{"filp", "files"},
		{"dentry", "directory entries"},
		{"task_struct", "tasks"},
		{"vm_area_struct", "mappings"},
		{"eventpoll_epi", "epoll registrations"},
		{"sock_inode_cache", "sockets"},
	}};
	const auto *known =
		std::ranges::find_if(nouns, [&cache](const auto &n) { return cache == n.first; });

	return known != nouns.end() ? known->second : "objects";
}

} // namespace tarn::ledger
