// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <deque>
#include <hosted/engine/log.h>
#include <iterator>
#include <mutex>

namespace hosted
{

namespace
{

// Limits the log in tests and long replays that nobody reads; the oldest records are dropped.
constexpr std::size_t max_records = 100'000;

struct kernel_log {
	std::mutex lock;
	std::deque<log_record> records;
};

kernel_log &the_log()
{
	static kernel_log one;
	return one;
}

constinit std::atomic<const log_watch *> watch{nullptr};

} // namespace

void add_log_record(log_record record)
{
	const log_watch *watcher = watch.load(std::memory_order_acquire);
	const std::string text = watcher ? record.text : std::string();
	{
		kernel_log &log = the_log();
		const std::lock_guard guard(log.lock);
		log.records.push_back(std::move(record));
		if (log.records.size() > max_records)
			log.records.pop_front();
	}
	if (watcher)
		watcher->function_(text);
}

log_watch::log_watch(std::function<void(const std::string &text)> function)
	: function_(std::move(function))
{
	watch.store(this, std::memory_order_release);
}

log_watch::~log_watch()
{
	watch.store(nullptr, std::memory_order_release);
}

std::vector<log_record> take_log()
{
	std::deque<log_record> taken;
	{
		const std::lock_guard guard(the_log().lock);
		taken.swap(the_log().records);
	}
	return {std::make_move_iterator(taken.begin()), std::make_move_iterator(taken.end())};
}

} // namespace hosted
