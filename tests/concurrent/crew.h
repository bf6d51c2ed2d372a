// SPDX-License-Identifier: GPL-2.0-only
// Host threads as CPUs of the machine, each with a task of its own.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <hosted/callstack.h>
#include <hosted/context.h>
#include <hosted/slab.h>
#include <hosted/tasks.h>

namespace concurrent_tests
{

// Threads that repeat their work until they are told to stop, at the latest when the crew goes.
class crew
{
public:
	~crew()
	{
		stop();
	}

	// More threads, each on a CPU of its own, as tasks with one name and the same call stack.
	void add(int threads, const std::function<void()> &work)
	{
		for (int i = 0; i < threads; i++)
			threads_.emplace_back(&crew::run, this, threads_.size(), work);
	}
	// Waits until the crew has done some more of its work.
	void let_work(unsigned long rounds)
	{
		const unsigned long until = rounds_.load(std::memory_order_relaxed) + rounds;
		while (rounds_.load(std::memory_order_relaxed) < until)
			std::this_thread::yield();
	}
	void stop()
	{
		stopping_ = true;
		for (std::thread &thread : threads_)
			thread.join();
		threads_.clear();
	}

private:
	void run(unsigned cpu, const std::function<void()> &work)
	{
		const hosted::task_ptr task =
			hosted::make_task("crew", static_cast<int>(100 + cpu));
		const hosted::task_scope as(*task);
		const hosted::context_scope on(hosted::context_kind::process, cpu);
		const hosted::frame_scope in(hosted::symbol_address("storm", 0x10, 0x80));
		do {
			work();
			rounds_.fetch_add(1, std::memory_order_relaxed);
		} while (!stopping_.load(std::memory_order_relaxed));
	}

	std::vector<std::thread> threads_;
	std::atomic<bool> stopping_{false};
	std::atomic<unsigned long> rounds_{0};
};

// Each of the threads runs the work once.
inline void in_threads(int threads, const std::function<void(int cpu)> &work)
{
	crew all;
	all.stop(); // before they begin: nobody repeats anything
	for (int cpu = 0; cpu < threads; cpu++)
		all.add(1, [&work, cpu] { work(cpu); });
}

// Some objects come, part of them from an interrupt, and go.
inline void slab_traffic(kmem_cache &cache, int objects)
{
	std::vector<void *> held;
	for (int i = 0; i < objects; i++) {
		const auto kind =
			i % 4 == 3 ? hosted::context_kind::softirq : hosted::context_kind::process;
		const hosted::context_scope in(kind, hosted::self().cpu);
		if (void *object = hosted::allocate(cache, GFP_ATOMIC))
			held.push_back(object);
	}
	for (void *object : held)
		hosted::release(cache, object);
}

} // namespace concurrent_tests
