// SPDX-License-Identifier: GPL-2.0-only
// Spinlocks, mutexes, contexts and RCU, and the misuse that the judge stops.
#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

#include <hosted/engine/irqs_off.h>
#include <hosted/engine/judge.h>
#include <kernel/preempt.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

template <class Lock>
class locks : public kernel_test
{
protected:
	Lock lock;
};
using kinds = testing::Types<test_spinlock, test_mutex>;
TYPED_TEST_SUITE(locks, kinds);

TYPED_TEST(locks, exclude_others)
{
	this->lock.init("the_lock");
	long counter = 0;
	on_threads(4, [&](unsigned) {
		for (int i = 0; i < 10000; i++) {
			this->lock.take();
			counter++;
			this->lock.release();
		}
	});
	EXPECT_EQ(counter, 40000);
}

TYPED_TEST(locks, stop_misuse)
{
	TypeParam &lock = this->lock;
	EXPECT_DEATH(lock.take(), "never initialised");
	lock.init("the_lock");
	EXPECT_DEATH(lock.release(), "does not hold it: the_lock");
	lock.take();
	EXPECT_DEATH(lock.take(), "taken twice: the_lock");
	EXPECT_DEATH(lock.init("the_lock"), "initialised while held: the_lock");
	EXPECT_DEATH(std::thread([&] { lock.release(); }).join(), "does not hold it: the_lock");
	lock.release();
	EXPECT_DEATH(
		{
			const callback_check check("the_callback");
			lock.take();
		},
		"left behind by a callback: the_callback(.|\n)*  holds the_lock");
}

using contexts = kernel_test;

TEST_F(contexts, a_wrong_lock_order_stops_before_it_deadlocks)
{
	test_spinlock a, b, c, twin;
	a.init("a");
	b.init("b");
	c.init("c");
	const auto nested = [](test_spinlock &outer, test_spinlock &inner) {
		const irqsave_guard first(outer.lock);
		const irqsave_guard second(inner.lock);
	};
	nested(a, b);
	EXPECT_DEATH(nested(b, a), "lock order: a is taken under b");
	nested(b, c);
	EXPECT_DEATH(nested(c, a), "lock order: a is taken under c") << "through three locks";

	// A class is a name and a key: a module that is loaded again may have other locks at the
	// addresses of its old keys.
	helper_raw_spin_lock_init(&twin.lock, "a", &a.key);
	EXPECT_DEATH(nested(a, twin), "two locks of class a");
	helper_raw_spin_lock_init(&twin.lock, "other", &a.key);
	nested(a, twin);
}

TEST_F(contexts, nest_as_on_a_cpu_and_forbid_sleep)
{
	test_spinlock s;
	s.init("s");
	for (const auto kind : {context_kind::softirq, context_kind::hardirq, context_kind::nmi}) {
		const context_scope scope(kind, 2);
		EXPECT_EQ(self().cpu, 2U);
		EXPECT_EQ(self().irqs_off, kind != context_kind::softirq);
		EXPECT_DEATH(might_sleep("call"), "sleep in atomic context: call");
		EXPECT_DEATH(const context_scope inner(context_kind::process), "cannot begin");
	}
	{
		const irqsave_guard guard(s.lock);
		EXPECT_EQ(helper_preempt_count(), 1);
		EXPECT_TRUE(self().irqs_off);
		EXPECT_DEATH(might_sleep("call"), "sleep in atomic context: call(.*\n)*  holds s");
	}
	{
		const rcu_read_guard reader;
		EXPECT_DEATH(might_sleep("call"), "sleep in atomic context");
	}
	EXPECT_DEATH(helper_rcu_read_unlock(), "no read section is open");
	might_sleep("call");
}

TEST_F(contexts, time_with_interrupts_off_counts_for_the_lock_that_turned_them_off)
{
	using namespace std::chrono_literals;
	test_spinlock outer, inner;
	outer.init("outer");
	inner.init("inner");
	const auto work = [](std::chrono::nanoseconds time) {
		const std::clock_t start = std::clock(); // counts microseconds
		while (std::chrono::microseconds(std::clock() - start) < time)
			;
	};
	const irqs_off_timer timer;
	work(20ms);
	{
		const irqsave_guard off(outer.lock);
		const irqsave_guard still_off(inner.lock);
		work(2ms);
	}
	for (int i = 0; i < 4; i++) {
		const irqsave_guard off(inner.lock);
		work(1ms);
	}
	std::this_thread::sleep_for(20ms);
	EXPECT_GE(timer.longest("outer"), 2ms);
	EXPECT_GE(timer.longest("inner"), 1ms);
	EXPECT_LT(timer.longest("inner"), 4ms) << "neither their sum nor the nested one's";
	EXPECT_LT(timer.longest(), 20ms);
	EXPECT_EQ(timer.longest("other"), 0ms);
}

TEST_F(contexts, no_reader_sees_memory_freed_after_a_grace_period)
{
	std::atomic<int *> shared{new int(1)};
	std::atomic<bool> done{false};
	std::thread updater([&] {
		for (int i = 2; i < 500; i++) {
			const std::unique_ptr<int> old(shared.exchange(new int(i)));
			synchronize_rcu();
			*old = 0;
		}
		done = true;
	});
	on_threads(2, [&](unsigned) {
		while (!done) {
			const rcu_read_guard outer;
			const int *value = shared.load();
			{
				const rcu_read_guard nested;
			}
			ASSERT_NE(*value, 0);
		}
	});
	updater.join();
	delete shared.load();
}

} // namespace
