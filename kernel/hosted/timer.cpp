// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <condition_variable>
#include <fmt/format.h>
#include <hosted/engine/clock.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/lockdep.h>
#include <hosted/engine/opaque.h>
#include <kernel/jiffies.h>
#include <kernel/timer.h>
#include <mutex>
#include <new>
#include <vector>

using namespace hosted;

namespace
{

struct timer {
	magic_number<0x74696d72> magic{};
	unsigned lock_class;
	void (*function)(timer_list *timer);
	unsigned long due = 0; // jiffies
};

timer &real(timer_list *storage)
{
	return opaque_cast<timer>(storage);
}

bool before(unsigned long a, unsigned long b)
{
	return static_cast<long>(a - b) < 0;
}

struct timer_base {
	std::mutex lock;
	std::condition_variable callback_done;
	std::vector<timer_list *> armed; // in the order of arming
	timer_list *running = nullptr;
	const thread_context *runner = nullptr;
	std::mutex advancing; // one thread advances time at a time; taken before lock
};

timer_base &base()
{
	static timer_base the_base;
	return the_base;
}

void set_jiffies(unsigned long value)
{
	__atomic_store_n(&jiffies, value, __ATOMIC_RELAXED);
}

void judge_timer(timer_list *timer, const char *call)
{
	judge_initialised(real(timer), call, "the timer was never initialised");
}

// Advances the clock to the next timer due by target and removes that timer from the list; null if
// there is none.
timer_list *take_due(unsigned long target)
{
	timer_base &b = base();
	const auto first = std::ranges::min_element(b.armed, [](timer_list *x, timer_list *y) {
		return before(real(x).due, real(y).due);
	});
	if (first == b.armed.end() || before(target, real(*first).due))
		return nullptr;
	timer_list *timer = *first;
	b.armed.erase(first);
	set_jiffies(real(timer).due);
	return timer;
}

void run_callback(timer_list *timer)
{
	// the callback may free the timer, so nothing of it is read afterwards
	const unsigned lock_class = real(timer).lock_class;
	void (*const function)(timer_list *) = real(timer).function;
	const context_scope softirq(context_kind::softirq, self().cpu);
	push_held_lock(self(), timer, lock_class);
	{
		const callback_check check(lock_class_name(lock_class));
		function(timer);
	}
	pop_held_lock(self(), timer);
}

std::vector<std::string> pending_timers()
{
	timer_base &b = base();
	const std::lock_guard guard(b.lock);
	std::vector<std::string> lines;
	for (timer_list *timer : b.armed)
		lines.push_back(
			fmt::format("timer {}, armed", lock_class_name(real(timer).lock_class)));
	if (b.running != nullptr)
		lines.emplace_back("timer, callback running");
	return lines;
}

const leftover_source timer_leftovers(pending_timers);

} // namespace

namespace hosted
{

void advance(unsigned long ticks)
{
	timer_base &b = base();
	const std::lock_guard mover(b.advancing);
	const unsigned long target = READ_ONCE(jiffies) + ticks;
	std::unique_lock lock(b.lock);
	while (timer_list *timer = take_due(target)) {
		b.running = timer;
		b.runner = &self();
		lock.unlock();
		run_callback(timer);
		lock.lock();
		b.running = nullptr;
		b.runner = nullptr;
		b.callback_done.notify_all();
	}
	set_jiffies(target);
}

void reset_clock()
{
	timer_base &b = base();
	const std::lock_guard guard(b.lock);
	if (b.armed.empty() && b.running == nullptr)
		set_jiffies(boot_jiffies);
}

} // namespace hosted

void init_timer_key(struct timer_list *timer, void (*func)(struct timer_list *timer), unsigned int,
		    const char *name, struct lock_class_key *key)
{
	timer_base &b = base();
	const std::lock_guard guard(b.lock);
	if (judging && std::ranges::find(b.armed, timer) != b.armed.end())
		judge_stop("init_timer_key", "the timer is armed");
	new (timer->storage)::timer{.lock_class = lock_class(name, key), .function = func};
}

int mod_timer(struct timer_list *timer, unsigned long expires)
{
	judge_timer(timer, "mod_timer");
	timer_base &b = base();
	const std::lock_guard guard(b.lock);
	const bool pending = std::erase(b.armed, timer) != 0;
	// this tick's timers have run already
	const unsigned long next = READ_ONCE(jiffies) + 1;
	real(timer).due = before(expires, next) ? next : expires;
	b.armed.push_back(timer);
	return pending ? 1 : 0;
}

int timer_delete_sync(struct timer_list *timer)
{
	judge_timer(timer, "timer_delete_sync");
	timer_base &b = base();
	thread_context &ctx = self();
	if (judging && (ctx.preempt_count & (hardirq_mask | nmi_mask)) != 0)
		judge_stop("timer_delete_sync",
			   "the caller may interrupt the callback that it waits for");
	std::unique_lock lock(b.lock);
	if (judging && b.running == timer && b.runner == &ctx)
		judge_stop("timer_delete_sync", "a timer's callback waits for itself to end");
	check_lock_order(ctx, real(timer).lock_class);
	b.callback_done.wait(lock, [&] { return b.running != timer; });
	return std::erase(b.armed, timer) != 0 ? 1 : 0;
}
