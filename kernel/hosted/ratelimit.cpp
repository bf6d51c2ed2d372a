// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <hosted/engine/opaque.h>
#include <kernel/jiffies.h>
#include <kernel/printk.h>
#include <kernel/ratelimit.h>
#include <new>

using namespace hosted;

namespace
{

struct rate_limit {
	magic_number<0x72617465> magic{};
	std::atomic<bool> locked{false};
	int interval;
	int burst;
	int printed = 0;
	int missed = 0;
	unsigned long begin = 0; // jiffies; 0 before the first call
};

void begin_interval(rate_limit &limit, unsigned long now, const char *func)
{
	if (limit.missed != 0)
		_printk(KERN_WARNING "%s: %d callbacks suppressed\n", func, limit.missed);
	limit.begin = now;
	limit.printed = 0;
	limit.missed = 0;
}

} // namespace

void helper_ratelimit_state_init(struct ratelimit_state *rs, int interval, int burst)
{
	new (rs->storage) rate_limit{.interval = interval, .burst = burst};
}

int ___ratelimit(struct ratelimit_state *rs, const char *func)
{
	auto &limit = opaque_cast<rate_limit>(rs);
	judge_initialised(limit, "___ratelimit", "the state was never initialised");
	if (limit.interval == 0)
		return 1;
	// do not wait if the state is busy: this caller may have interrupted its holder
	if (limit.locked.exchange(true, std::memory_order_acquire))
		return 0;
	const unsigned long now = READ_ONCE(jiffies);
	if (limit.begin == 0)
		limit.begin = now;
	if (static_cast<long>(limit.begin + limit.interval - now) < 0)
		begin_interval(limit, now, func);
	const bool let_through = limit.printed < limit.burst;
	(let_through ? limit.printed : limit.missed)++;
	limit.locked.store(false, std::memory_order_release);
	return let_through ? 1 : 0;
}
