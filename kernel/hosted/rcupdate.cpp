// SPDX-License-Identifier: GPL-2.0-only
// Grace periods are based on epochs: a reader publishes the epoch in which it began; a grace period
// starts a new epoch and waits until no reader of an older one is left.
#include <hosted/engine/judge.h>
#include <hosted/rcupdate.h>
#include <kernel/rcupdate.h>
#include <mutex>
#include <thread>

namespace hosted
{

namespace
{

constinit std::atomic<std::uint64_t> current_epoch{1};

struct reader_list {
	std::mutex lock;
	std::vector<const thread_context *> readers;
};

reader_list &all_readers()
{
	static reader_list the_list;
	return the_list;
}

// Orders a reader's announcement before its reads, and an update before the check for readers. A
// std::atomic_thread_fence would be clearer, but the thread sanitizer does not support it. The
// sanitizer needs no fence: the epochs carry the order that it checks.
void full_barrier()
{
	__sync_synchronize();
}

bool older_readers(std::uint64_t epoch)
{
	reader_list &all = all_readers();
	const std::lock_guard guard(all.lock);
	for (const thread_context *ctx : all.readers) {
		const std::uint64_t began = ctx->rcu_epoch.load(std::memory_order_acquire);
		if (began != 0 && began < epoch)
			return true;
	}
	return false;
}

} // namespace

void add_rcu_reader(const thread_context &ctx)
{
	const std::lock_guard guard(all_readers().lock);
	all_readers().readers.push_back(&ctx);
}

void remove_rcu_reader(const thread_context &ctx)
{
	const std::lock_guard guard(all_readers().lock);
	std::erase(all_readers().readers, &ctx);
}

} // namespace hosted

using namespace hosted;

void helper_rcu_read_lock(void)
{
	thread_context &ctx = self();
	if (ctx.rcu_depth++ != 0)
		return;
	const std::uint64_t epoch = current_epoch.load(std::memory_order_acquire);
	// release: this value must also publish the end of the previous section
	ctx.rcu_epoch.store(epoch, std::memory_order_release);
	full_barrier();
}

void helper_rcu_read_unlock(void)
{
	thread_context &ctx = self();
	if (judging && ctx.rcu_depth == 0) [[unlikely]]
		judge_stop("rcu_read_unlock", "no read section is open");
	if (--ctx.rcu_depth == 0)
		ctx.rcu_epoch.store(0, std::memory_order_release);
}

void synchronize_rcu(void)
{
	might_sleep("synchronize_rcu");
	const std::uint64_t epoch = current_epoch.fetch_add(1, std::memory_order_acq_rel) + 1;
	full_barrier();
	while (older_readers(epoch))
		std::this_thread::yield();
}
