// SPDX-License-Identifier: GPL-2.0-only
// The probes in the slab allocator. They run in the context of the allocator's caller, which can be
// any. Locks: see slub_track.h.
#include <kernel/irq_work.h>
#include <kernel/preempt.h>
#include <kernel/ratelimit.h>
#include <kernel/stacktrace.h>
#include <kernel/string.h>
#include <uapi/tarn_lmkd.h>

#include "depot.h"
#include "leak_notify.h"
#include "leak_threshold.h"
#include "mem_adapter.h"
#include "mem_event.h"
#include "slub_track.h"
#include "subsystems.h"

constinit hot_words hot = {
	.slub_track_cache = nullptr,
	.slub_track_flag = 0,
	.slab_leak_k = default_threshold_k,
};

namespace
{

constexpr unsigned int stack_depth = 7;
// The recorder, the probe, the tracepoint's own function and two functions of the allocator.
constexpr unsigned int own_frames = 5;

constinit ratelimit_state slub_detect_notify = {};
constinit struct irq_work slub_notify_work = {};

// Not marked cold, nor is anything else: GCC does not align such functions as the kernel's function
// tracer needs it.
[[gnu::noinline]] void notify()
{
	if (!___ratelimit(&slub_detect_notify, __func__))
		return;
	irq_work_queue(&slub_notify_work);
	mem_event_count(MM_EVENT_SLAB_LEAK);
}

// Does the slow work before the ring's lock is taken. Inlined, as is its caller, so that the
// recorder is the only frame between probe and capture.
[[gnu::always_inline]] inline slub_track_entry make_entry(unsigned long addr)
{
	unsigned long stack[stack_depth] KERNEL_UNINITIALIZED;
	const unsigned int depth = stack_trace_save(stack, stack_depth, own_frames);
	const depot_stack_handle_t handle = depot_save(stack, depth, __GFP_KSWAPD_RECLAIM);
	slub_track_entry entry;

	entry.handle = handle ? handle : addr;
	if (in_interrupt_context()) {
		entry.pid = 0;
		memset(entry.comm, 0, sizeof(entry.comm));
	} else {
		const struct task_struct *task = helper_current();

		entry.pid = helper_task_pid(task);
		memcpy(entry.comm, helper_task_comm(task), sizeof(entry.comm));
	}
	return entry;
}

// Under a ring's lock neither ring may be used for the tracker's own events: two tasks holding one
// lock each would wait for each other. A tree is emptied without a lock, so there interrupts come
// in between, which do not work for the tracker.
[[gnu::noinline]] bool works_on_tree()
{
	const struct task_struct *task = helper_current();

	return READ_ONCE(slub_tree.users[SLUB_ALLOC]) == task ||
	       READ_ONCE(slub_tree.users[SLUB_FREE]) == task ||
	       (READ_ONCE(slub_tree.emptier) == task && !in_interrupt_context());
}

// Whether the allocator works for the tracker itself here.
bool serves_tracker()
{
	return atomic_read(&slub_tree.tasks) != 0 && works_on_tree();
}

// Without the lock. The order of the two loads makes the answer true for the moment of the second:
// in never shrinks, so there were at least as many entries then. Tolerated race: an event that
// comes between them across a switch-off and a switch-on may find the new ring full.
bool is_full(const slub_ringbuf &ring) NO_THREAD_SAFETY_ANALYSIS
{
	const u64 in = LOAD_ACQUIRE(ring.in);

	// Signed, as entries may have been taken out between the loads that came in after the
	// first.
	return static_cast<s64>(in - READ_ONCE(ring.out)) >= static_cast<s64>(slub_ring_entries);
}

// A thread that is awake drains what has come, and the next event looks again.
void wake_drain(int kind)
{
	struct wait_queue_head &wait = slub_track[kind].slub_wait;

	if (helper_waitqueue_active(&wait))
		__wake_up(&wait, TASK_NORMAL, 1, nullptr);
}

// Returns whether the ring is half full.
[[gnu::always_inline]] inline bool put_entry(slub_ringbuf &ring, const slub_track_entry &entry)
	REQUIRES(ring.lock)
{
	const u64 pending = ring.in - ring.out;

	// Switched off since the first check.
	if (!READ_ONCE(hot.slub_track_flag))
		return false;
	// Switched on by hand, without rings.
	if (!ring.buf) {
		atomic64_add(1, &ring.dropped);
		return false;
	}
	if (pending >= ring.size) {
		atomic64_add(1, &ring.dropped);
		return true;
	}
	ring.buf[ring.in & (ring.size - 1)] = entry;
	WRITE_ONCE(ring.in, ring.in + 1);
	return pending + 1 >= ring.size / 2;
}

[[gnu::always_inline]] inline void record_event(int kind, unsigned long addr)
{
	slub_ringbuf &ring = srb_array[kind];
	const slub_track_entry entry = make_entry(addr);
	bool half_full = false;
	{
		const irqsave_guard guard(ring.lock);

		half_full = put_entry(ring, entry);
	}
	if (half_full)
		wake_drain(kind);
}

// Whether to record an event of the target. Counts it if not.
[[gnu::always_inline]] inline bool wants_event(int kind)
{
	slub_ringbuf &ring = srb_array[kind];

	if (!READ_ONCE(hot.slub_track_flag))
		return false;
	if (serves_tracker()) [[unlikely]] {
		atomic64_add(1, &ring.skipped);
		return false;
	}
	// Before the stack is taken, which is most of an event's cost.
	if (is_full(ring)) {
		atomic64_add(1, &ring.dropped);
		wake_drain(kind);
		return false;
	}
	return true;
}

bool is_tracked(const struct kmem_cache *cache)
{
	return helper_kmem_cache_flags(cache) & SLUB_TRACK_MARK;
}

} // namespace

void slub_notify_leak(struct irq_work *)
{
	lmkd_notify(LMKD_EVENT_SLAB_LEAK);
}

void slub_cancel_notify(void)
{
	irq_work_sync(&slub_notify_work);
}

void slub_track_load(void)
{
	helper_init_irq_work(&slub_notify_work, slub_notify_leak);
	helper_ratelimit_state_init(&slub_detect_notify, leak_notify_interval, leak_notify_burst);
	slub_init_rings();
}

// Not inlined: own_frames counts them.
[[gnu::noinline]] void set_alloc_track(unsigned long addr)
{
	record_event(SLUB_ALLOC, addr);
}

[[gnu::noinline]] void set_free_track(unsigned long addr)
{
	record_event(SLUB_FREE, addr);
}

void vh_slab_alloc_node(void *, void *object, unsigned long addr, struct kmem_cache *cache)
{
	if (cache == READ_ONCE(hot.slub_track_cache))
		return;
	if (slab_leak_suspected()) [[unlikely]]
		notify();
	if (object && is_tracked(cache) && wants_event(SLUB_ALLOC))
		set_alloc_track(addr);
}

void vh_slab_free(void *, unsigned long addr, struct kmem_cache *cache)
{
	if (cache == READ_ONCE(hot.slub_track_cache))
		return;
	if (is_tracked(cache) && wants_event(SLUB_FREE))
		set_free_track(addr);
}
