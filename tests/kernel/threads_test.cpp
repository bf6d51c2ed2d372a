// SPDX-License-Identifier: GPL-2.0-only
// Kernel threads, the system work queue, and virtual time with its timers and rate limits.
#include <atomic>

#include <hosted/workqueue.h>
#include <kernel/jiffies.h>
#include <kernel/kthread.h>
#include <kernel/preempt.h>
#include <kernel/ratelimit.h>
#include <kernel/timer.h>
#include <kernel/wait.h>
#include <kernel/workqueue.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

using threads = kernel_test;
using threads_death = kernel_test;

// A typical drain thread: sleeps, is woken, works, until it is stopped.
struct drain_thread {
	wait_queue_head queue{};
	lock_class_key key{};
	std::atomic<int> rounds{0};
	task_struct *task;

	drain_thread()
	{
		__init_waitqueue_head(&queue, "queue", &key);
		task = kthread_create_on_node(run, this, -1, "drain-%s", "one");
	}

	static int run(void *data)
	{
		auto &self = *static_cast<drain_thread *>(data);
		while (!kthread_should_stop()) {
			wait_queue_entry entry;
			helper_init_wait(&entry);
			prepare_to_wait(&self.queue, &entry, TASK_INTERRUPTIBLE);
			if (!kthread_should_stop())
				schedule();
			finish_wait(&self.queue, &entry);
			self.rounds++;
		}
		return 42;
	}
	void wake()
	{
		__wake_up(&queue, TASK_NORMAL, 1, nullptr);
	}
};

TEST_F(threads, a_thread_runs_from_its_first_wake_up_to_its_stop_unless_held)
{
	drain_thread d;
	d.wake(); // parked, and on no queue yet
	settle();
	EXPECT_EQ(wake_up_process(d.task), 1);
	settle();
	EXPECT_EQ(d.rounds, 0);
	for (int i = 1; i <= 100; i++) {
		d.wake();
		settle();
		ASSERT_EQ(d.rounds, i);
	}
	hold_thread("drain-one");
	d.wake();
	d.wake(); // the first one has taken it off the queue
	settle();
	EXPECT_EQ(d.rounds, 100);
	let_go_thread("drain-one");
	settle();
	EXPECT_EQ(d.rounds, 101);
	EXPECT_EQ(kernel_threads(), 1U);
	EXPECT_EQ(kthread_stop(d.task), 42);
	EXPECT_EQ(kernel_threads(), 0U);
}

TEST_F(threads, a_wake_up_before_schedule_is_not_lost)
{
	drain_thread d;
	wait_queue_entry entry;
	helper_init_wait(&entry);
	prepare_to_wait(&d.queue, &entry, TASK_INTERRUPTIBLE);
	{
		const context_scope interrupt(context_kind::hardirq);
		d.wake();
	}
	schedule();
	finish_wait(&d.queue, &entry);

	// First a mode that does not wake this sleeper, then one that does.
	prepare_to_wait(&d.queue, &entry, TASK_INTERRUPTIBLE);
	__wake_up(&d.queue, TASK_NORMAL & ~TASK_INTERRUPTIBLE, 1, nullptr);
	std::thread waker([&] { d.wake(); });
	schedule();
	finish_wait(&d.queue, &entry);
	waker.join();
	kthread_stop(d.task);
}

TEST_F(threads_death, a_sleep_of_another_kind_before_schedule_stops)
{
	EXPECT_DEATH(
		{
			drain_thread d;
			wait_queue_entry entry;
			helper_init_wait(&entry);
			prepare_to_wait(&d.queue, &entry, TASK_INTERRUPTIBLE);
			synchronize_rcu();
		},
		"between prepare_to_wait and schedule: synchronize_rcu");
}

struct test_work {
	work_struct item{}; // first, so that the function finds the rest
	std::atomic<int> runs{0};
	std::atomic<bool> blocked{false};
	std::atomic<bool> requeue{false};

	test_work()
	{
		helper_init_work(&item, [](work_struct *work) {
			auto &self = *reinterpret_cast<test_work *>(work);
			EXPECT_EQ(helper_preempt_count(), 0);
			self.runs++;
			while (self.blocked)
				std::this_thread::yield();
			if (self.requeue)
				helper_queue_work(system_wq, work);
		});
	}
};

TEST_F(threads, a_work_item_queued_several_times_runs_once)
{
	test_work w;
	EXPECT_TRUE(helper_queue_work(system_wq, &w.item));
	settle();
	EXPECT_EQ(w.runs, 1);

	hold_thread("kworker/0:1");
	EXPECT_TRUE(helper_queue_work(system_wq, &w.item));
	EXPECT_FALSE(helper_queue_work(system_wq, &w.item));
	settle();
	EXPECT_TRUE(cancel_work_sync(&w.item));
	EXPECT_TRUE(helper_queue_work(system_wq, &w.item));
	stop_workers();
	EXPECT_EQ(w.runs, 2);
	EXPECT_EQ(kernel_threads(), 0U);
}

TEST_F(threads, a_cancellation_waits_and_ends_requeueing)
{
	test_work w;
	w.blocked = w.requeue = true;
	helper_queue_work(system_wq, &w.item);
	while (w.runs == 0)
		std::this_thread::yield();
	EXPECT_EQ(leftovers(), lines{"work item, running"});
	std::atomic<bool> cancelled{false};
	std::thread canceller([&] {
		cancel_work_sync(&w.item);
		cancelled = true;
	});
	// From the moment that the canceller waits, the item cannot be queued again.
	while (helper_queue_work(system_wq, &w.item)) {
		EXPECT_FALSE(cancelled);
		std::this_thread::yield();
	}
	w.blocked = false;
	canceller.join();
	cancel_work_sync(&w.item);
	EXPECT_EQ(leftovers(), lines{});
}

using timer = kernel_test;
using ratelimit = kernel_test;
using ticks = std::vector<unsigned long>;

unsigned long since_boot()
{
	return READ_ONCE(jiffies) - boot_jiffies;
}

struct test_timer {
	timer_list timer{}; // first, so that the callback finds the rest
	lock_class_key key{};
	ticks runs; // since boot
	unsigned long period = 0;

	test_timer()
	{
		init_timer_key(&timer, run, 0, "timer", &key);
	}
	~test_timer()
	{
		timer_delete_sync(&timer);
	}
	test_timer(const test_timer &) = delete;
	test_timer &operator=(const test_timer &) = delete;

	static void run(timer_list *timer)
	{
		auto &self = *reinterpret_cast<test_timer *>(timer);
		EXPECT_EQ(helper_preempt_count(), 0x100);
		self.runs.push_back(since_boot());
		if (self.period != 0)
			self.arm(self.period);
	}
	int arm(unsigned long in)
	{
		return mod_timer(&timer, READ_ONCE(jiffies) + in);
	}
};

TEST_F(timer, runs_in_order_of_expiry)
{
	EXPECT_EQ(READ_ONCE(jiffies), 4294892296UL);
	test_timer first;
	test_timer second;
	EXPECT_EQ(second.arm(70), 0);
	EXPECT_EQ(second.arm(7), 1);
	first.arm(5);
	first.period = 5;
	advance(4);
	EXPECT_EQ(first.runs, ticks{});
	advance(8);
	EXPECT_EQ(first.runs, (ticks{5, 10}));
	EXPECT_EQ(second.runs, ticks{7});
	second.arm(-100UL);
	advance(0);
	EXPECT_EQ(second.runs, ticks{7});
	advance(1);
	EXPECT_EQ(second.runs, (ticks{7, 13})) << "a time in the past means the next tick";
}

TEST_F(timer, a_deletion_beats_a_callback_that_rearms)
{
	for (int i = 0; i < 50; i++) {
		test_timer t;
		t.period = 1;
		t.arm(1);
		std::thread mover([] { advance(200); });
		std::this_thread::yield();
		timer_delete_sync(&t.timer);
		const auto runs = t.runs.size();
		mover.join();
		ASSERT_EQ(t.runs.size(), runs);
	}
}

TEST_F(ratelimit, passes_a_burst_per_interval_and_counts_the_rest)
{
	ratelimit_state rs{};
	EXPECT_DEATH((void)___ratelimit(&rs, "caller"), "never initialised");
	const auto passed = [&](int calls) {
		int passes = 0;
		for (int i = 0; i < calls; i++)
			passes += ___ratelimit(&rs, "caller");
		return passes;
	};
	helper_ratelimit_state_init(&rs, 100, 2);
	advance(1000); // the interval begins with the first call, not at initialisation
	EXPECT_EQ(passed(3), 2);
	advance(100);
	EXPECT_EQ(passed(1), 0);
	EXPECT_TRUE(take_log().empty());
	advance(1);
	EXPECT_EQ(passed(1), 1);
	const auto log = take_log();
	ASSERT_EQ(log.size(), 1U);
	EXPECT_EQ(log[0].text, "caller: 2 callbacks suppressed\n");
	advance(101);
	EXPECT_EQ(passed(1), 1);
	EXPECT_TRUE(take_log().empty());
}

} // namespace
