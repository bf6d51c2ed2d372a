// SPDX-License-Identifier: GPL-2.0-only
// The hosted kernel's judge: it stops the program when a caller breaks a kernel rule.
#pragma once

#include <hosted/context.h>
#include <string_view>

namespace hosted
{

// Whether callers are judged. A measuring build turns it off, as a kernel is built without its
// lock checking for speed; locks, failures and counts stay real either way.
#ifdef HOSTED_NO_JUDGE
inline constexpr bool judging = false;
#else
inline constexpr bool judging = true;
#endif

// Prints "hosted kernel: RULE: WHAT" with the thread's context, held locks and simulated call stack
// on standard error, then aborts. Takes no lock of the kernel interface and none of the scheduler.
[[noreturn]] void judge_stop(std::string_view rule, std::string_view what);

[[noreturn]] void stop_sleeper(const char *what);
[[noreturn]] void stop_blocker(const char *what);
bool about_to_sleep(const task_struct &task);

// Whether the context forbids sleep: interrupt, preemption or interrupts off, RCU read section,
// spinlock held.
inline bool atomic_context(const thread_context &ctx)
{
	return ctx.preempt_count != 0 || ctx.irqs_off || ctx.rcu_depth != 0;
}

// Stops the caller if its context may not sleep, or if its task has announced a sleep of its own
// (prepare_to_wait) that a sleep in here would forget.
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

// Checks that a callback leaves the thread as it found it: context, RCU depth and held locks. Made
// before the callback, it checks when it goes out of scope.
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
