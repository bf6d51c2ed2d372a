// SPDX-License-Identifier: GPL-2.0-only
// A booted machine without a module, and helpers for the kernel's own tests.
#pragma once

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/clock.h>
#include <hosted/engine/context.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/log.h>
#include <hosted/engine/machine.h>
#include <hosted/task_control.h>
#include <kernel/mutex.h>
#include <kernel/rcupdate.h>
#include <kernel/spinlock.h>

namespace kernel_tests
{

using lines = std::vector<std::string>;
using hosted::context_kind;
using hosted::context_scope;
using hosted::fault_scope;

class kernel_test : public testing::Test
{
	hosted::machine machine_;
};

// Locks that can be misused, hidden from the compiler's thread-safety analysis.
struct test_spinlock {
	raw_spinlock_t lock{};
	lock_class_key key{};

	void init(const char *name)
	{
		helper_raw_spin_lock_init(&lock, name, &key);
	}
	void take() NO_THREAD_SAFETY_ANALYSIS
	{
		(void)_raw_spin_lock_irqsave(&lock);
	}
	void release() NO_THREAD_SAFETY_ANALYSIS
	{
		_raw_spin_unlock_irqrestore(&lock, 0);
	}
};

struct test_mutex {
	struct mutex lock = {};
	lock_class_key key{};

	void init(const char *name)
	{
		__mutex_init(&lock, name, &key);
	}
	void take() NO_THREAD_SAFETY_ANALYSIS
	{
		helper_mutex_lock(&lock);
	}
	void release() NO_THREAD_SAFETY_ANALYSIS
	{
		helper_mutex_unlock(&lock);
	}
};

// Runs body(number) on several threads at once.
template <class Body>
void on_threads(unsigned count, Body body)
{
	std::vector<std::thread> threads;
	for (unsigned i = 0; i < count; i++)
		threads.emplace_back(body, i);
	for (std::thread &thread : threads)
		thread.join();
}

} // namespace kernel_tests
