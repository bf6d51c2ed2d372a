// SPDX-License-Identifier: GPL-2.0-only
// The hosted kernel's view of the running thread, and ways to choose its context.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

struct irq_work;
struct task_struct;

namespace hosted
{

// The kernel's layout of a preemption count.
inline constexpr int preempt_unit = 0x1;
inline constexpr int softirq_unit = 0x100;
inline constexpr int hardirq_unit = 0x10000;
inline constexpr int nmi_unit = 0x100000;
inline constexpr int softirq_mask = 0xff00;
inline constexpr int hardirq_mask = 0xf0000;
inline constexpr int nmi_mask = 0xf00000;

struct held_lock {
	const void *lock;
	unsigned lock_class;
};

// One host thread as the kernel sees it. Only its own thread accesses it, except for rcu_epoch,
// which grace periods read.
struct thread_context {
	task_struct *task = nullptr; // set before use: an unnamed thread is its own task
	unsigned cpu = 0;
	int preempt_count = 0;
	bool irqs_off = false;
	int rcu_depth = 0;
	std::atomic<std::uint64_t> rcu_epoch{0}; // 0 outside read sections
	std::vector<held_lock> held;
	std::vector<irq_work *> irq_works; // queued while interrupts are off
	std::vector<unsigned long> stack;  // simulated return addresses, outermost first
};

extern constinit thread_local thread_context *this_thread_context;
thread_context &enter_thread();

inline thread_context &self()
{
	thread_context *context = this_thread_context;
	return context != nullptr ? *context : enter_thread();
}

enum class context_kind { process, softirq, hardirq, nmi };

// Runs the scope in a context on a CPU. hardirq and nmi also turn interrupts off. As on a real CPU,
// a context can only interrupt certain others: process nests in process, softirq needs interrupts
// on and no interrupt being served, hardirq needs interrupts on, nmi interrupts everything but
// itself.
class context_scope
{
public:
	explicit context_scope(context_kind kind, unsigned cpu = 0);
	~context_scope();
	context_scope(const context_scope &) = delete;
	context_scope &operator=(const context_scope &) = delete;

private:
	thread_context &ctx_;
	int preempt_count_;
	bool irqs_off_;
	unsigned cpu_;
};

// Runs the scope as another task, which the caller owns; see task_control.h.
class task_scope
{
public:
	explicit task_scope(task_struct &task);
	~task_scope();
	task_scope(const task_scope &) = delete;
	task_scope &operator=(const task_scope &) = delete;

private:
	task_struct *before_;
};

} // namespace hosted
