// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/tracepoint.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include <fmt/format.h>

#include <hosted/engine/fault.h>
#include <hosted/engine/leftovers.h>
#include <kernel/err.h>

namespace hosted
{
namespace
{

using list_ptr = std::unique_ptr<const probe_list>;

struct registry {
	std::mutex lock;
	std::set<tracepoint *> in_use;
	// Replaced lists, which earlier firings may still be walking.
	std::vector<list_ptr> retired;
};

registry &all()
{
	static registry instance;
	return instance;
}

std::vector<std::string> report()
{
	registry &r = all();
	const std::lock_guard guard(r.lock);
	std::vector<std::string> lines;
	for (const tracepoint *tp : r.in_use)
		lines.push_back(fmt::format("{} probe(s) on tracepoint {}",
					    tp->list.load()->probes.size(), tp->name));
	return lines;
}

const leftover_source source(report);

std::vector<unsigned long> frames_of(const tracepoint &tp)
{
	std::vector<unsigned long> frames;
	for (unsigned i = tp.probe_frames; i > 0; i--)
		frames.push_back(
			symbol_address(fmt::format("{}_probe.{}", tp.name, i), 0x20, 0x80));
	frames.push_back(symbol_address(fmt::format("__traceiter_{}", tp.name), 0x50, 0x80));
	return frames;
}

std::vector<registered_probe> probes_of(const tracepoint &tp)
{
	const probe_list *list = tp.list.load();
	return list ? list->probes : std::vector<registered_probe>();
}

std::vector<registered_probe>::iterator find(std::vector<registered_probe> &probes,
					     const void *function, const void *data)
{
	return std::ranges::find_if(probes, [&](const registered_probe &p) {
		return p.function == function && p.data == data;
	});
}

// Called under the registry's lock.
void publish(registry &r, tracepoint &tp, std::vector<registered_probe> probes)
{
	list_ptr next;
	if (probes.empty()) {
		r.in_use.erase(&tp);
	} else {
		r.in_use.insert(&tp);
		next = std::make_unique<probe_list>(probe_list{frames_of(tp), std::move(probes)});
	}
	// pairs with the load in firing
	if (const probe_list *before = tp.list.exchange(next.release(), std::memory_order_acq_rel))
		r.retired.emplace_back(before);
}

const probe_list &enter(const tracepoint &tp)
{
	static const probe_list nobody;
	self().preempt_count++;
	helper_rcu_read_lock();
	const probe_list *list = tp.list.load(std::memory_order_acquire);
	return list ? *list : nobody;
}

} // namespace

firing::firing(const tracepoint &tp) : list_(enter(tp)), frames_(list_.frames) {}

firing::~firing()
{
	helper_rcu_read_unlock();
	self().preempt_count--;
}

void reset_tracepoints()
{
	helper_tracepoint_synchronize_unregister();
	registry &r = all();
	const std::lock_guard guard(r.lock);
	if (!r.in_use.empty())
		judge_stop("tracepoint", "probes are registered at the kernel's reset");
}

} // namespace hosted

using namespace hosted;

int tracepoint_probe_register(tracepoint *tp, void *function, void *data)
{
	might_sleep("tracepoint_probe_register");
	if (!function)
		return -EINVAL;
	if (should_fail("tracepoint_probe_register"))
		return -ENOMEM;
	registry &r = all();
	const std::lock_guard guard(r.lock);
	std::vector<registered_probe> probes = probes_of(*tp);
	if (find(probes, function, data) != probes.end())
		judge_stop("tracepoint", fmt::format("probe registered twice on {}", tp->name));
	probes.push_back({function, data});
	publish(r, *tp, std::move(probes));
	return 0;
}

int tracepoint_probe_unregister(tracepoint *tp, void *function, void *data)
{
	might_sleep("tracepoint_probe_unregister");
	registry &r = all();
	const std::lock_guard guard(r.lock);
	std::vector<registered_probe> probes = probes_of(*tp);
	const auto found = find(probes, function, data);
	if (found == probes.end())
		judge_stop("tracepoint", fmt::format("no such probe to remove on {}", tp->name));
	probes.erase(found);
	publish(r, *tp, std::move(probes));
	return 0;
}

void helper_tracepoint_synchronize_unregister()
{
	registry &r = all();
	std::vector<list_ptr> unreachable;
	{
		const std::lock_guard guard(r.lock);
		unreachable.swap(r.retired);
	}
	synchronize_rcu();
}
