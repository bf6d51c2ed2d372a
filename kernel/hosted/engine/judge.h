// SPDX-License-Identifier: GPL-2.0-only
// Stops the program when a caller breaks a kernel rule.
#pragma once

#include <hosted/engine/context.h>
#include <string_view>

namespace hosted
{

// Whether callers are judged. A benchmark build turns this off, just as a kernel is built without
// lock checking for speed; locks, failures and counts stay real either way.
#ifdef HOSTED_NO_JUDGE
inline constexpr bool judging = false;
#else
inline constexpr bool judging = true;
#endif

// Prints "hosted kernel: RULE: WHAT" to standard error, with the thread's context, held locks and
// simulated call stack, then aborts. Takes no lock of the kernel interface or the scheduler.
[[noreturn]] void judge_stop(std::string_view rule, std::string_view what);

[[noreturn]] void stop_sleeper(const char *what);
[[noreturn]] void stop_blocker(const char *what);
bool about_to_sleep(const task_struct &task);

// Whether the context forbids sleeping: interrupt, preemption or interrupts off, RCU read section,
// spinlock held.
inline bool atomic_context(const thread_context &ctx)
{
	return ctx.preempt_count != 0 || ctx.irqs_off || ctx.rcu_depth != 0;
}

// Stops the caller if its context may not sleep, or if its task has called prepare_to_wait:
// sleeping here would lose the task state set there.
inline void might_sleep(const char *what)
{
	if constexpr (judging) {
		const thread_context &ctx = self();
		if (atomic_context(ctx)) [[unlikely]]
			stop_sleeper(what);
		if (about_to_sleep(*ctx.task)) [[unlikely]]
			stop_blocker(what);
	}
}

// Checks that a callback leaves the thread's context, RCU depth and held locks as it found them.
// Construct it before the callback; the destructor does the check.
class callback_check
{
public:
	explicit callback_check(const char *callback)
	{
		if constexpr (judging) {
			const thread_context &ctx = self();
			callback_ = callback;
			preempt_count_ = ctx.preempt_count;
			rcu_depth_ = ctx.rcu_depth;
			held_locks_ = ctx.held.size();
			irqs_off_ = ctx.irqs_off;
		}
	}
	~callback_check()
	{
		if constexpr (judging) {
			const thread_context &ctx = self();
			if (preempt_count_ != ctx.preempt_count || rcu_depth_ != ctx.rcu_depth ||
			    held_locks_ != ctx.held.size() || irqs_off_ != ctx.irqs_off)
				[[unlikely]]
				stop();
		}
	}
	callback_check(const callback_check &) = delete;
	callback_check &operator=(const callback_check &) = delete;

private:
	[[noreturn]] void stop() const;

	const char *callback_;
	std::size_t held_locks_;
	int preempt_count_;
	int rcu_depth_;
	bool irqs_off_;
};

} // namespace hosted
