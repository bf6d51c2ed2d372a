// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/process.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <utility>

#include <hosted/engine/fault.h>
#include <hosted/mm_struct.h>
#include <hosted/task_struct.h>
#include <kernel/rcupdate.h>

namespace hosted
{

// Links, threads and exits are protected by the list's lock, which is outside any task lock. A
// process that has exited keeps its link, for walkers that are still on it.
struct process {
	task_struct *leader;
	std::atomic<process *> next;
	process *previous;
	std::vector<std::unique_ptr<task_struct>> threads{}; // leader first
	std::atomic<bool> exited{false};
	std::atomic<bool> killed{false};
	std::atomic<int> oom_score_adj{0};
	mm_struct mm{};
};

namespace
{

constexpr auto relaxed = std::memory_order_relaxed;

process init_process{.leader = &init_task, .next = &init_process, .previous = &init_process};

struct process_list {
	std::mutex lock;
	// exited, but someone may still access them
	std::vector<std::unique_ptr<process>> dying{};
};

process_list &processes()
{
	static process_list instance;
	return instance;
}

struct signal_log {
	std::mutex lock;
	std::vector<sent_signal> sent{};
};

signal_log &signals()
{
	static signal_log instance;
	return instance;
}

constinit std::atomic<bool> victims_exit{false};

process &group_of(const task_struct &task)
{
	if (!task.group)
		judge_stop("process list", "the task is not on it");
	return *task.group;
}

void check_walk()
{
	if (judging && self().rcu_depth == 0)
		judge_stop("process list", "walked outside an RCU read section");
}

void set_mm(task_struct &task, mm_struct *mm)
{
	const spin_guard guard(task.alloc_lock);
	task.mm = mm;
}

// Frees exited processes after a grace period. If the caller may not wait, they are left for the
// next caller that may.
void free_exited_processes()
{
	std::vector<std::unique_ptr<process>> dead;

	if (atomic_context(self()))
		return;
	{
		const std::lock_guard guard(processes().lock);
		dead.swap(processes().dying);
	}
	if (!dead.empty())
		synchronize_rcu();
}

} // namespace

task_struct &add_process(std::string_view comm, int pid, const memory_use &use, int oom_score_adj)
{
	auto p = std::make_unique<process>();

	p->threads.push_back(std::make_unique<task_struct>(comm, pid, p.get()));
	p->leader = p->threads.front().get();
	set_mm(*p->leader, &p->mm);
	set_memory_use(*p->leader, use);
	set_oom_score_adj(*p->leader, oom_score_adj);

	const std::lock_guard guard(processes().lock);
	process *last = init_process.previous;
	p->next.store(&init_process, relaxed);
	p->previous = last;
	init_process.previous = p.get();
	// release: whoever finds it finds it complete
	last->next.store(p.get(), std::memory_order_release);
	return *p.release()->leader;
}

task_struct &add_thread(task_struct &of, std::string_view comm, int pid)
{
	process &p = group_of(of);
	auto thread = std::make_unique<task_struct>(comm, pid, &p);

	const std::lock_guard guard(processes().lock);
	set_mm(*thread, p.exited.load(relaxed) ? nullptr : &p.mm);
	p.threads.back()->next_thread.store(thread.get(), std::memory_order_release);
	return *p.threads.emplace_back(std::move(thread));
}

void set_memory_use(task_struct &task, const memory_use &use)
{
	auto &counters = group_of(task).mm.counters;

	counters[MM_COUNTER_FILE].store(use.file, relaxed);
	counters[MM_COUNTER_ANON].store(use.anon, relaxed);
	counters[MM_COUNTER_SWAP].store(use.swap, relaxed);
	counters[MM_COUNTER_SHMEM].store(use.shmem, relaxed);
}

void set_oom_score_adj(task_struct &task, int score)
{
	group_of(task).oom_score_adj.store(score, relaxed);
}

void set_task_flags(task_struct &task, unsigned flags)
{
	task.flags.store(flags, relaxed);
}

void set_task_state(task_struct &task, unsigned state)
{
	task.state.store(static_cast<int>(state), relaxed);
}

void set_memdie(task_struct &task, bool memdie)
{
	task.memdie.store(memdie, relaxed);
}

void drop_mm(task_struct &task)
{
	set_mm(task, nullptr);
}

void set_need_resched(bool pending)
{
	self().task->need_resched.store(pending, relaxed);
}

void exit_process(task_struct &task)
{
	process &p = group_of(task);
	{
		const std::lock_guard guard(processes().lock);
		if (p.exited.exchange(true, relaxed))
			return;
		for (const auto &thread : p.threads)
			drop_mm(*thread);
		p.next.load(relaxed)->previous = p.previous;
		p.previous->next.store(p.next.load(relaxed), std::memory_order_release);
		processes().dying.emplace_back(&p);
	}
	free_exited_processes();
}

void let_victims_exit(bool exit)
{
	victims_exit.store(exit, relaxed);
}

std::vector<sent_signal> take_signals()
{
	const std::lock_guard guard(signals().lock);
	return std::exchange(signals().sent, {});
}

void reset_processes()
{
	while (init_process.previous != &init_process)
		exit_process(*init_process.previous->leader);
	free_exited_processes();
	let_victims_exit(false);
	take_signals();
}

} // namespace hosted

using namespace hosted;

task_struct init_task{"swapper/0", 0, &init_process};

int send_sig(int sig, task_struct *task, int priv)
{
	check_task_use(*task);
	process &p = group_of(*task);
	if (should_fail("send_sig"))
		return -EAGAIN;
	if (p.exited.load(relaxed))
		return -ESRCH;
	const std::lock_guard guard(signals().lock);
	signals().sent.push_back(
		{task->comm, task->pid, sig, priv, judging && holds(task->alloc_lock)});
	if (sig == SIGKILL)
		p.killed.store(true, relaxed);
	return 0;
}

task_struct *helper_next_process(task_struct *task)
{
	check_walk();
	return group_of(*task).next.load(std::memory_order_acquire)->leader;
}

task_struct *helper_first_thread(task_struct *task)
{
	check_walk();
	return group_of(*task).leader;
}

task_struct *helper_next_thread(task_struct *thread)
{
	check_walk();
	return thread->next_thread.load(std::memory_order_acquire);
}

void helper_task_lock(task_struct *task) NO_THREAD_SAFETY_ANALYSIS
{
	check_task_use(*task);
	spin_lock(task->alloc_lock);
}

void helper_task_unlock(task_struct *task) NO_THREAD_SAFETY_ANALYSIS
{
	const bool exits = victims_exit.load(relaxed) && task->group && task->group->killed;

	spin_unlock(task->alloc_lock);
	if (exits) [[unlikely]]
		exit_process(*task);
}

const mm_struct *helper_task_mm(const task_struct *task) NO_THREAD_SAFETY_ANALYSIS
{
	if (judging && !holds(task->alloc_lock))
		judge_stop("task's mm", "read without the task's lock");
	return task->mm;
}

unsigned helper_task_flags(const task_struct *task)
{
	check_task_use(*task);
	return task->flags.load(relaxed);
}

unsigned helper_task_state(const task_struct *task)
{
	check_task_use(*task);
	return static_cast<unsigned>(task->state.load(relaxed));
}

bool helper_task_is_memdie(const task_struct *task)
{
	check_task_use(*task);
	return task->memdie.load(relaxed);
}

int helper_task_oom_score_adj(const task_struct *task)
{
	check_task_use(*task);
	return group_of(*task).oom_score_adj.load(relaxed);
}

unsigned long helper_mm_counter(const mm_struct *mm, mm_counter counter)
{
	if (judging && !holds_task_lock())
		judge_stop("mm counter", "read without a task's lock, which keeps the mm");
	const long pages = mm->counters[counter].load(relaxed);
	return pages < 0 ? 0 : static_cast<unsigned long>(pages);
}

void helper_current_set_flags(unsigned flags)
{
	self().task->flags.fetch_or(flags, relaxed);
}

void helper_current_clear_flags(unsigned flags)
{
	self().task->flags.fetch_and(~flags, relaxed);
}

bool helper_need_resched(void)
{
	return self().task->need_resched.load(relaxed);
}
