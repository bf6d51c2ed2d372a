// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <hosted/judge.h>
#include <kernel/jiffies.h>
#include <kernel/printk.h>
#include <kernel/ratelimit.h>
#include <new>
#include <type_traits>

using namespace hosted;

namespace
{

constexpr std::uint32_t ratelimit_magic = 0x72617465;

struct rate_limit {
	std::uint32_t magic = ratelimit_magic;
	std::atomic<bool> locked{false};
	int interval;
	int burst;
	int printed = 0;
	int missed = 0;
	unsigned long begin = 0; // jiffies; 0 before the first call
};
static_assert(sizeof(rate_limit) <= sizeof(ratelimit_state));
static_assert(std::is_trivially_destructible_v<rate_limit>);

rate_limit &real(ratelimit_state *rs)
{
	return *reinterpret_cast<rate_limit *>(rs->storage);
}

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
	rate_limit &limit = real(rs);
	if (judging && limit.magic != ratelimit_magic)
		judge_stop("___ratelimit", "the state was never initialised");
	if (limit.interval == 0)
		return 1;
	// whoever finds the state busy does not wait: it may have interrupted the one inside
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
