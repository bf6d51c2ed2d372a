// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/context.h>
#include <hosted/engine/judge.h>
#include <hosted/irq_work.h>
#include <hosted/rcupdate.h>
#include <hosted/task_struct.h>

namespace hosted
{

constinit thread_local thread_context *this_thread_context = nullptr;

namespace
{

struct host_thread {
	task_struct task{"host", new_pid()};
	thread_context context;

	host_thread()
	{
		context.task = &task;
		context.held.reserve(16);
		context.stack.reserve(64);
		add_rcu_reader(context);
		this_thread_context = &context;
	}
	~host_thread()
	{
		this_thread_context = nullptr;
		remove_rcu_reader(context);
	}
	host_thread(const host_thread &) = delete;
	host_thread &operator=(const host_thread &) = delete;
};

bool may_interrupt(context_kind kind, const thread_context &ctx)
{
	const int count = ctx.preempt_count;
	switch (kind) {
	case context_kind::process:
		return !atomic_context(ctx);
	case context_kind::softirq:
		return !ctx.irqs_off && (count & (softirq_mask | hardirq_mask | nmi_mask)) == 0;
	case context_kind::hardirq:
		return !ctx.irqs_off && (count & (hardirq_mask | nmi_mask)) == 0;
	case context_kind::nmi:
		return (count & nmi_mask) == 0;
	}
	__builtin_unreachable();
}

int unit_of(context_kind kind)
{
	switch (kind) {
	case context_kind::process:
		return 0;
	case context_kind::softirq:
		return softirq_unit;
	case context_kind::hardirq:
		return hardirq_unit;
	case context_kind::nmi:
		return nmi_unit;
	}
	__builtin_unreachable();
}

} // namespace

thread_context &enter_thread()
{
	static thread_local host_thread thread;
	return thread.context;
}

context_scope::context_scope(context_kind kind, unsigned cpu)
	: ctx_(self()), preempt_count_(ctx_.preempt_count), irqs_off_(ctx_.irqs_off), cpu_(ctx_.cpu)
{
	if (!may_interrupt(kind, ctx_))
		judge_stop("context", "this context cannot begin inside the current one");
	ctx_.preempt_count += unit_of(kind);
	ctx_.irqs_off |= kind == context_kind::hardirq || kind == context_kind::nmi;
	ctx_.cpu = cpu;
}

context_scope::~context_scope()
{
	ctx_.preempt_count = preempt_count_;
	ctx_.irqs_off = irqs_off_;
	ctx_.cpu = cpu_;
	interrupts_on(ctx_);
}

task_scope::task_scope(task_struct &task) : before_(self().task)
{
	self().task = &task;
}

task_scope::~task_scope()
{
	self().task = before_;
}

} // namespace hosted
