// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/fault.h>
#include <hosted/judge.h>
#include <mutex>

namespace hosted
{

constinit std::atomic<bool> fault_scope_open{false};

namespace
{

struct fault_plan {
	std::mutex lock;
	unsigned n = 0;
	fault_scope::mode mode = fault_scope::mode::once;
	std::vector<std::string> calls;
	bool hit = false;
};

fault_plan &plan()
{
	static fault_plan the_plan;
	return the_plan;
}

} // namespace

bool fails_in_scope(const char *call)
{
	fault_plan &p = plan();
	const std::lock_guard guard(p.lock);
	if (!fault_scope_open.load(std::memory_order_relaxed))
		return false;
	p.calls.emplace_back(call);
	const bool fails =
		p.mode == fault_scope::mode::once ? p.calls.size() == p.n : p.calls.size() >= p.n;
	p.hit |= fails;
	return fails;
}

fault_scope::fault_scope(unsigned n, mode m)
{
	fault_plan &p = plan();
	const std::lock_guard guard(p.lock);
	if (fault_scope_open.load(std::memory_order_relaxed))
		judge_stop("fault_scope", "another one is open");
	p.n = n;
	p.mode = m;
	p.calls.clear();
	p.hit = false;
	fault_scope_open.store(true, std::memory_order_relaxed);
}

fault_scope::~fault_scope()
{
	const std::lock_guard guard(plan().lock);
	fault_scope_open.store(false, std::memory_order_relaxed);
}

std::vector<std::string> fault_scope::calls() const
{
	const std::lock_guard guard(plan().lock);
	return plan().calls;
}

bool fault_scope::hit() const
{
	const std::lock_guard guard(plan().lock);
	return plan().hit;
}

} // namespace hosted
