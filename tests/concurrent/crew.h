// SPDX-License-Identifier: GPL-2.0-only
// Host threads that act as CPUs of the machine, each with its own task.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <hosted/engine/callstack.h>
#include <hosted/engine/context.h>
#include <hosted/slab.h>
#include <hosted/task_control.h>

namespace concurrent_tests
{

// Threads that repeat their work until they are stopped, at the latest by the crew's destructor.
class crew
{
public:
	~crew()
	{
		stop();
	}

	// Adds threads, each on its own CPU, as tasks with the same name and call stack.
	void add(int threads, const std::function<void()> &work)
	{
		for (int i = 0; i < threads; i++)
			threads_.emplace_back(&crew::run, this, threads_.size(), work);
	}
	// Waits until the crew has done some more work.
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

// Runs the work once on each of several threads.
inline void in_threads(int threads, const std::function<void(int cpu)> &work)
{
	crew all;
	all.stop(); // before they begin, so that each runs once
	for (int cpu = 0; cpu < threads; cpu++)
		all.add(1, [&work, cpu] { work(cpu); });
}

// Allocates some objects, part of them in an interrupt, and frees them.
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
