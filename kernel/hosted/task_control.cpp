// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <hosted/engine/lockdep.h>
#include <hosted/task_struct.h>

namespace
{

constexpr char lock_name[] = "alloc_lock";
constinit lock_class_key lock_key{};

} // namespace

task_struct::task_struct(std::string_view name, int number, hosted::process *of) : group(of)
{
	helper_raw_spin_lock_init(&alloc_lock, lock_name, &lock_key);
	hosted::set_task(*this, name, number);
}

namespace hosted
{

int new_pid()
{
	// above the small pids that people choose for their own tasks
	static constinit std::atomic<int> last{1000};
	return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void stop_task_use()
{
	judge_stop("task structure", "used outside an RCU read section");
}

bool holds_task_lock()
{
	static const unsigned task_locks = lock_class(lock_name, &lock_key);

	return std::ranges::any_of(
		self().held, [](const held_lock &held) { return held.lock_class == task_locks; });
}

void task_deleter::operator()(task_struct *task) const
{
	delete task;
}

task_ptr make_task(std::string_view comm, int pid)
{
	return task_ptr(new task_struct(comm, pid));
}

void set_task(task_struct &task, std::string_view comm, int pid)
{
	const std::string_view kept = comm.substr(0, TASK_COMM_LEN - 1);
	std::fill(std::begin(task.comm), std::end(task.comm), '\0');
	std::copy(kept.begin(), kept.end(), task.comm);
	task.pid = pid;
}

} // namespace hosted
