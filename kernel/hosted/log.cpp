// SPDX-License-Identifier: GPL-2.0-only
#include <deque>
#include <hosted/log.h>
#include <iterator>
#include <mutex>

namespace hosted
{

namespace
{

// What a test or a long replay may print without a reader; the oldest records go first.
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

} // namespace

void add_log_record(log_record record)
{
	kernel_log &log = the_log();
	const std::lock_guard guard(log.lock);
	log.records.push_back(std::move(record));
	if (log.records.size() > max_records)
		log.records.pop_front();
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
