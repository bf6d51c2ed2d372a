// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/lockdep.h>
#include <hosted/task_struct.h>

namespace hosted
{

namespace
{

const char *context_name(const thread_context &ctx)
{
	if ((ctx.preempt_count & nmi_mask) != 0)
		return "nmi";
	if ((ctx.preempt_count & hardirq_mask) != 0)
		return "hardirq";
	return (ctx.preempt_count & softirq_mask) != 0 ? "softirq" : "process";
}

} // namespace

void judge_stop(std::string_view rule, std::string_view what)
{
	const thread_context &ctx = self();
	std::string report = fmt::format("hosted kernel: {}: {}\n", rule, what);
	report +=
		fmt::format("  task {}/{} cpu {}, {} context, preempt_count {:#x}, interrupts {}, "
			    "rcu depth {}\n",
			    ctx.task->comm, ctx.task->pid, ctx.cpu, context_name(ctx),
			    ctx.preempt_count, ctx.irqs_off ? "off" : "on", ctx.rcu_depth);
	for (auto held = ctx.held.rbegin(); held != ctx.held.rend(); ++held)
		report += fmt::format("  holds {}\n", lock_class_name(held->lock_class));
	for (auto address = ctx.stack.rbegin(); address != ctx.stack.rend(); ++address)
		report += fmt::format("  at {}\n", symbol_text(*address));
	(void)std::fflush(stdout);
	(void)std::fputs(report.c_str(), stderr);
	(void)std::fflush(stderr);
	std::abort();
}

void stop_sleeper(const char *what)
{
	judge_stop("sleep in atomic context", what);
}

void stop_blocker(const char *what)
{
	judge_stop("blocking call between prepare_to_wait and schedule", what);
}

bool about_to_sleep(const task_struct &task)
{
	return task.state.load(std::memory_order_relaxed) != task_running;
}

void callback_check::stop() const
{
	const thread_context &ctx = self();
	judge_stop("state left behind by a callback",
		   fmt::format("{} began with preempt_count {:#x}, interrupts {}, rcu depth {}, {} "
			       "locks held and returned with {:#x}, {}, {}, {}",
			       callback_, preempt_count_, irqs_off_ ? "off" : "on", rcu_depth_,
			       held_locks_, ctx.preempt_count, ctx.irqs_off ? "off" : "on",
			       ctx.rcu_depth, ctx.held.size()));
}

} // namespace hosted
