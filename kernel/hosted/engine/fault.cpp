// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/fault.h>

#include <algorithm>
#include <mutex>
#include <ostream>
#include <utility>

#include <hosted/engine/judge.h>

namespace hosted
{

constinit std::atomic<bool> fault_scope_open{false};

namespace
{

struct fault_plan {
	std::mutex lock;
	fallible_call failing;
	fault_scope::mode mode = fault_scope::mode::once;
	std::vector<fallible_call> calls;
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
	const auto earlier = std::ranges::count(p.calls, call, &fallible_call::name);
	p.calls.push_back({call, static_cast<unsigned>(earlier) + 1});
	const bool fails =
		p.calls.back() == p.failing || (p.hit && p.mode == fault_scope::mode::from_then_on);
	p.hit |= fails;
	return fails;
}

std::ostream &operator<<(std::ostream &os, const fallible_call &call)
{
	return os << call.name << ' ' << call.nth;
}

fault_scope::fault_scope(fallible_call call, mode m)
{
	fault_plan &p = plan();
	const std::lock_guard guard(p.lock);
	if (fault_scope_open.load(std::memory_order_relaxed))
		judge_stop("fault_scope", "another one is open");
	p.failing = std::move(call);
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

std::vector<fallible_call> fault_scope::calls() const
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
