// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/hunt_print.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include <fmt/format.h>
#include <tarnctl/terminal/printable.h>

namespace tarn
{

namespace
{

std::string task_name(const std::string &comm)
{
	return comm.empty() ? "(interrupt)" : printable(comm);
}

// The module keeps the lowest and the highest pid of a name; pids in between may be other tasks'.
std::string pids(const caller_record &record)
{
	if (record.pid_min == record.pid_max)
		return fmt::format("pid {}", record.pid_min);
	return fmt::format("lowest pid {}, highest {}", record.pid_min, record.pid_max);
}

struct task_counts {
	std::string comm;
	std::int64_t allocated = 0;
	std::int64_t freed = 0;
};

task_counts &counts_of(std::vector<task_counts> &all, const std::string &comm)
{
	const auto found = std::ranges::find(all, comm, &task_counts::comm);

	if (found != all.end())
		return *found;
	return all.emplace_back(task_counts{comm});
}

// Tasks with what was recorded of them, those that allocate most first.
std::vector<task_counts> task_table(const readout &callers)
{
	std::vector<task_counts> all;

	for (const caller_record &record : callers.alloc)
		counts_of(all, record.comm).allocated += record.count;
	for (const caller_record &record : callers.free)
		counts_of(all, record.comm).freed += record.count;
	std::ranges::stable_sort(all, std::greater{}, &task_counts::allocated);
	return all;
}

// The table is no balance: pairs that were seen less than 50 times are missing from it, and a free
// in an interrupt names no task.
void print_tasks(fmt::memory_buffer &out, const hunt_result &result)
{
	auto to = std::back_inserter(out);
	const std::vector<task_counts> table = task_table(result.callers);
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;
	std::int64_t in_interrupts = 0;

	for (const task_counts &t : table) {
		allocated += static_cast<std::uint64_t>(t.allocated);
		freed += static_cast<std::uint64_t>(t.freed);
		if (t.comm.empty())
			in_interrupts += t.freed;
	}
	const bool exact =
		result.events && result.events->alloc == allocated && result.events->free == freed;

	fmt::format_to(to, "\n{:<16} {:>12} {:>12}{}\n", "task", "allocated", "freed",
		       exact ? "" : "   (lower bounds)");
	for (const task_counts &t : table)
		fmt::format_to(to, "{:<16} {:>12} {:>12}\n", task_name(t.comm), t.allocated,
			       t.freed);
	if (!exact)
		fmt::format_to(to, "Pairs of stack and task that came less than 50 times are left "
				   "out.\n");
	if (in_interrupts != 0)
		fmt::format_to(to,
			       "{} frees came in interrupts (RCU, for instance): they may be of "
			       "any task's objects.\n",
			       in_interrupts);
}

// A call stack with the records of the tasks that came along it, heaviest first.
struct stack_group {
	const caller_record *first;
	std::string tasks;
	std::int64_t shown = 0; // events of those tasks
};

// In the order of the readout; records of different stacks may interleave there.
std::vector<stack_group> group_by_stack(const std::vector<caller_record> &records)
{
	std::vector<stack_group> groups;

	for (const caller_record &record : records) {
		auto group = std::ranges::find(groups, record.handle, [](const stack_group &g) {
			return g.first->handle;
		});

		if (group == groups.end())
			group = groups.insert(group, stack_group{&record, {}});
		group->tasks += fmt::format("{}{} {} ({})", group->tasks.empty() ? "" : ", ",
					    record.count, task_name(record.comm), pids(record));
		group->shown += record.count;
	}
	return groups;
}

void print_callers(fmt::memory_buffer &out, const char *title, const char *none,
		   const std::vector<caller_record> &records)
{
	auto to = std::back_inserter(out);

	fmt::format_to(to, "\n{}\n", records.empty() ? none : title);
	for (const stack_group &group : group_by_stack(records)) {
		const caller_record &first = *group.first;
		const std::int64_t others = static_cast<std::int64_t>(first.total) - group.shown;

		fmt::format_to(to, "\n{:>10}  {}", first.total, group.tasks);
		if (others > 0)
			fmt::format_to(to, ", {} by other tasks", others);
		fmt::format_to(to, "\n");
		if (first.frames.empty())
			fmt::format_to(to, "{:>12}{} (no call stack was saved)\n", "",
				       first.handle);
		for (const std::string &frame : first.frames)
			fmt::format_to(to, "{:>12}{}\n", "", printable(frame));
	}
}

nlohmann::ordered_json to_json(const std::vector<caller_record> &records)
{
	auto list = nlohmann::ordered_json::array();

	for (const caller_record &record : records) {
		list.push_back({{"handle", record.handle},
				{"comm", record.comm},
				{"count", record.count},
				{"total", record.total},
				{"pid_min", record.pid_min},
				{"pid_max", record.pid_max},
				{"frames", record.frames}});
	}
	return list;
}

} // namespace

std::string callers_text(const readout &callers)
{
	fmt::memory_buffer out;

	print_callers(out, "Who allocates, heaviest stacks first:",
		      "No caller allocated 50 times or more.", callers.alloc);
	print_callers(out, "Who frees, heaviest stacks first:", "No caller freed 50 times or more.",
		      callers.free);
	return fmt::to_string(out);
}

std::string hunt_text(const hunt_result &result)
{
	fmt::memory_buffer out;
	auto to = std::back_inserter(out);

	fmt::format_to(to, "Slab cache {}", printable(result.cache));
	if (result.object_size)
		fmt::format_to(to, ", {} bytes an object", *result.object_size);
	fmt::format_to(to, "\n");
	fmt::format_to(to, "  footprint  {} KiB before, {} KiB after: {:+} KiB\n",
		       result.target.start_kib, result.target.end_kib, result.target.delta_kib);
	if (result.events)
		fmt::format_to(to, "  events     {}\n", event_counts_text(*result.events));
	if (!result.callers.alloc.empty() || !result.callers.free.empty())
		print_tasks(out, result);
	return fmt::to_string(out) + callers_text(result.callers);
}

nlohmann::ordered_json hunt_members(const hunt_result &result)
{
	nlohmann::ordered_json object;

	object["cache"] = result.cache;
	if (result.object_size)
		object["object_size"] = *result.object_size;
	object["growth"] = {{"start_kib", result.target.start_kib},
			    {"end_kib", result.target.end_kib},
			    {"delta_kib", result.target.delta_kib}};
	if (result.events)
		object["events"] = {{"alloc", result.events->alloc},
				    {"free", result.events->free},
				    {"dropped", result.events->dropped()}};
	object["alloc"] = to_json(result.callers.alloc);
	object["free"] = to_json(result.callers.free);
	return object;
}

} // namespace tarn
