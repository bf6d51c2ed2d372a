// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/irq_work.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/lockdep.h>
#include <kernel/irq_work.h>

using namespace hosted;

namespace
{

constexpr std::uint32_t irq_work_magic = 0x69727177;

struct item {
	std::uint32_t magic = irq_work_magic;
	unsigned lock_class;
	void (*function)(irq_work *work);
};
static_assert(sizeof(item) <= sizeof(irq_work));
static_assert(std::is_trivially_destructible_v<item>);

item &real(irq_work *storage)
{
	return *reinterpret_cast<item *>(storage->storage);
}

// An item may be queued again while it runs, so it may stand in both lists.
struct irq_work_state {
	std::mutex lock;
	std::condition_variable done;
	std::vector<irq_work *> queued;
	std::vector<irq_work *> running;
};

irq_work_state &state()
{
	static irq_work_state &the_state = *new irq_work_state;
	return the_state;
}

bool contains(const std::vector<irq_work *> &items, const irq_work *work)
{
	return std::ranges::find(items, work) != items.end();
}

void judge_initialised(irq_work *work, const char *call)
{
	if (judging && real(work).magic != irq_work_magic)
		judge_stop(call, "the item was never initialised");
}

bool takes_interrupts(const thread_context &ctx)
{
	return !ctx.irqs_off && (ctx.preempt_count & (hardirq_mask | nmi_mask)) == 0;
}

void run(thread_context &ctx, irq_work *work)
{
	irq_work_state &s = state();
	const unsigned lock_class = real(work).lock_class;
	{
		const std::lock_guard guard(s.lock);
		std::erase(s.queued, work);
		s.running.push_back(work);
	}
	{
		const context_scope interrupt(context_kind::hardirq, ctx.cpu);
		push_held_lock(ctx, work, lock_class);
		{
			const callback_check check(lock_class_name(lock_class));
			real(work).function(work);
		}
		pop_held_lock(ctx, work);
	}
	const std::lock_guard guard(s.lock);
	s.running.erase(std::ranges::find(s.running, work));
	s.done.notify_all();
}

const leftover_source irq_work_leftovers([] {
	irq_work_state &s = state();
	const std::lock_guard guard(s.lock);
	return std::vector<std::string>(s.queued.size() + s.running.size(),
					"irq work, queued or running");
});

} // namespace

namespace hosted
{

void run_irq_work(thread_context &ctx)
{
	while (takes_interrupts(ctx) && !ctx.irq_works.empty()) {
		irq_work *work = ctx.irq_works.front();
		ctx.irq_works.erase(ctx.irq_works.begin());
		run(ctx, work);
	}
}

} // namespace hosted

void helper_init_irq_work(irq_work *work, void (*func)(irq_work *work))
{
	irq_work_state &s = state();
	const std::lock_guard guard(s.lock);
	if (judging && (contains(s.queued, work) || contains(s.running, work)))
		judge_stop("irq work initialised", "it is queued or runs");
	new (work->storage)
		item{.lock_class = lock_class("irq work", reinterpret_cast<const void *>(func)),
		     .function = func};
}

bool irq_work_queue(irq_work *work)
{
	judge_initialised(work, "irq_work_queue");
	thread_context &ctx = self();
	{
		irq_work_state &s = state();
		const std::lock_guard guard(s.lock);
		if (contains(s.queued, work))
			return false;
		s.queued.push_back(work);
	}
	ctx.irq_works.push_back(work);
	run_irq_work(ctx);
	return true;
}

void irq_work_sync(irq_work *work)
{
	might_sleep("irq_work_sync");
	judge_initialised(work, "irq_work_sync");
	check_lock_order(self(), real(work).lock_class);
	irq_work_state &s = state();
	std::unique_lock lock(s.lock);
	s.done.wait(lock, [&] { return !contains(s.queued, work) && !contains(s.running, work); });
}
