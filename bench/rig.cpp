// SPDX-License-Identifier: GPL-2.0-only
#include "rig.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/sysfs.h>
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bench
{
namespace
{

constexpr std::size_t depth = 12; // of the calls that lead to the allocator
constexpr std::size_t allocator_frames = 2;
constexpr std::size_t stack_room = 64; // enough that no frame moves

// Returns the frame that calls the allocator.
unsigned long &push_frames(hosted::thread_context &ctx)
{
	ctx.stack.reserve(stack_room);
	for (std::size_t i = 0; i < depth + allocator_frames; i++)
		ctx.stack.push_back(hosted::symbol_address(fmt::format("frame_{}", i), 0x20, 0x80));
	return ctx.stack[depth - 1];
}

int open_counter()
{
	perf_event_attr attr = {};

	attr.type = PERF_TYPE_HARDWARE;
	attr.size = sizeof(attr);
	attr.config = PERF_COUNT_HW_INSTRUCTIONS;
	attr.exclude_kernel = 1;
	attr.exclude_hv = 1;
	return static_cast<int>(
		syscall(SYS_perf_event_open, &attr, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

void require(bool fulfilled, const char *what)
{
	if (!fulfilled)
		throw std::runtime_error(what);
}

} // namespace

unsigned long callers::unseen = 0xffffffd000000000;

rig::rig()
	: probe_(module_.internal<decltype(vh_slab_alloc_node)>("vh_slab_alloc_node")),
	  fetch_(module_.internal<decltype(slub_fetch_node)>("slub_fetch_node"))
{
	const platform::client::results started = client_.start();

	require(started.memtrack == 0 && started.netlink == 0, "the module failed to start");
}

void rig::track(const std::string &name)
{
	const long taken = hosted::write_file(
		"/sys/module/tarn_mem_adapter/parameters/specified_target", name);

	require(taken > 0 && client_.command(MEMTYPE_SLUB, MEMCHECK_CMD_PREPARE) == 0 &&
			client_.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON) == 0,
		"tracking failed to switch on");
}

void rig::set_counts(int count)
{
	rb_root *root = &module_.internal<slub_track_state>("slub_track")[SLUB_ALLOC].root;

	for (rb_node *at = rb_first(root); at; at = rb_next(at))
		atomic_set(&reinterpret_cast<slub_caller_node *>(at)->count, count);
}

std::chrono::nanoseconds rig::read()
{
	static std::vector<slub_stack_record> records(max_records);
	auto *const stack_read =
		module_.internal<decltype(tarn_slub_stack_read)>("tarn_slub_stack_read");
	const hosted::irqs_off_timer timer;

	stack_read(records.data(), records.size(), SLUB_ALLOC);
	return timer.longest();
}

u64 rig::recorded() const NO_THREAD_SAFETY_ANALYSIS
{
	return module_.internal<slub_ringbuf>("srb_array")[SLUB_ALLOC].in;
}

plain_rig::plain_rig()
{
	tracepoint_probe_register(&point_, reinterpret_cast<void *>(&plain_tracker::probe),
				  &tracker_);
}

plain_rig::~plain_rig()
{
	tracepoint_probe_unregister(&point_, reinterpret_cast<void *>(&plain_tracker::probe),
				    &tracker_);
	helper_tracepoint_synchronize_unregister();
}

callers::callers(std::size_t pairs)
	: ctx_(hosted::self()), task_before_(ctx_.task), caller_(push_frames(ctx_))
{
	for (std::size_t i = 0; i < tasks_.size(); i++)
		tasks_[i] = hosted::make_task(fmt::format("task-{}", i), static_cast<int>(100 + i));
	for (std::size_t i = 0; i < pairs; i++) {
		const std::string caller = fmt::format("caller_{}", i / tasks_.size());

		pairs_.emplace_back(hosted::symbol_address(caller, 0x40, 0x80),
				    tasks_[i % tasks_.size()].get());
	}
	std::ranges::shuffle(pairs_, std::mt19937(1));
	next();
}

callers::~callers()
{
	ctx_.stack.clear();
	ctx_.task = task_before_;
}

std::uint64_t instructions()
{
	static const int counter = open_counter();
	std::uint64_t value = 0;

	return counter >= 0 && ::read(counter, &value, sizeof(value)) == sizeof(value) ? value : 0;
}

} // namespace bench
