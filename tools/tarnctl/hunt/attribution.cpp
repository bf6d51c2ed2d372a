// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/attribution.h>

#include <algorithm>
#include <functional>
#include <set>

#include <fmt/format.h>

namespace tarn
{

namespace
{

// Events of which nothing is known do not matter up to one in so many.
constexpr std::int64_t few = 20;

task_balance &balance_of(std::vector<task_balance> &all, const caller_record &record)
{
	const auto found = std::ranges::find(all, record.comm, &task_balance::comm);

	if (found == all.end())
		return all.emplace_back(
			task_balance{record.comm, record.pid_min, record.pid_max, 0, 0});
	found->pid_min = std::min(found->pid_min, record.pid_min);
	found->pid_max = std::max(found->pid_max, record.pid_max);
	return *found;
}

// All frees along the stacks that are shown, those of tasks that are not shown included.
std::int64_t frees_of_stacks(const std::vector<caller_record> &records)
{
	std::set<std::string> seen;
	std::int64_t frees = 0;

	for (const caller_record &record : records) {
		if (seen.insert(record.handle).second)
			frees += static_cast<std::int64_t>(record.total);
	}
	return frees;
}

} // namespace

std::vector<task_balance> task_balances(const readout &callers)
{
	std::vector<task_balance> all;

	for (const caller_record &record : callers.alloc)
		balance_of(all, record).allocated += record.count;
	for (const caller_record &record : callers.free)
		balance_of(all, record).freed += record.count;
	std::ranges::stable_sort(all, std::greater{}, &task_balance::difference);
	return all;
}

std::string why_uncertain(const readout &callers, std::optional<std::int64_t> grown,
			  const std::optional<event_counts> &events)
{
	const std::int64_t frees = frees_of_stacks(callers.free);
	std::int64_t shown = 0;
	std::int64_t in_interrupts = 0;
	std::int64_t of_others = 0;
	std::int64_t kept = 0;

	for (const task_balance &task : task_balances(callers)) {
		shown += task.freed;
		if (task.comm.empty())
			in_interrupts += task.freed;
		else if (task.difference() < 0)
			of_others -= task.difference();
		else
			kept += task.difference();
	}
	if (events && events->dropped() * few > events->all())
		return fmt::format("{} of {} events were dropped, frees among them perhaps",
				   events->dropped(), events->all());
	if (in_interrupts * few > frees)
		return fmt::format("{} of {} frees came in interrupts (RCU, for instance) and may "
				   "be of any task's objects",
				   in_interrupts, frees);
	if ((frees - shown) * few > frees)
		return fmt::format("{} of {} frees are of tasks that the readout leaves out",
				   frees - shown, frees);
	if (of_others * few > frees)
		return fmt::format("tasks freed {} objects more than they allocated: older ones, "
				   "or those of other tasks",
				   of_others);
	if (grown && *grown * 2 < kept)
		return fmt::format("the differences come to {} objects, but only {} more live "
				   "than before: frees are missing from the counts",
				   kept, std::max<std::int64_t>(*grown, 0));
	if (!grown && frees == 0)
		return "no frees were counted, and there are no slab figures to compare with";
	return "";
}

} // namespace tarn
