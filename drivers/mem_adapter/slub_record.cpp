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
#include "mem_adapter.h"
#include "mem_event.h"
#include "slub_track.h"
#include "subsystems.h"

namespace
{

constexpr unsigned int stack_depth = 7;
// The recorder, the probe, the tracepoint's own function and two functions of the allocator.
constexpr unsigned int own_frames = 5;

constinit ratelimit_state slub_detect_notify = {};
constinit struct irq_work slub_notify_work = {};

void maybe_need_notify()
{
	if (!tarn_should_detect_slab_leak())
		return;
	if (!___ratelimit(&slub_detect_notify, __func__))
		return;
	irq_work_queue(&slub_notify_work);
	mem_event_count(MM_EVENT_SLAB_LEAK);
}

// Does the slow work before the ring's lock is taken. Inlined, as is its caller, so that the
// recorder is the only frame between probe and capture.
[[gnu::always_inline]] inline slub_track_entry make_entry(unsigned long addr)
{
	unsigned long stack[stack_depth];
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

// Whether the allocator works for the tracker itself here. Under a ring's lock neither ring may be
// used then: two tasks holding one lock each would wait for each other. A tree is emptied without a
// lock, so there interrupts come in between, which do not work for the tracker.
bool serves_tracker()
{
	const struct task_struct *task = helper_current();

	return READ_ONCE(srb_array[SLUB_ALLOC].tree_user) == task ||
	       READ_ONCE(srb_array[SLUB_FREE].tree_user) == task ||
	       (READ_ONCE(slub_tree_emptier) == task && !in_interrupt_context());
}

[[gnu::always_inline]] inline void record_event(int kind, unsigned long addr)
{
	slub_ringbuf &ring = srb_array[kind];

	if (!READ_ONCE(slub_track_flag))
		return;
	if (serves_tracker()) {
		atomic64_add(1, &ring.skipped);
		return;
	}
	const slub_track_entry entry = make_entry(addr);
	const irqsave_guard guard(ring.lock);

	// Switched off since the first check.
	if (!READ_ONCE(slub_track_flag))
		return;
	// Switched on by hand, without rings.
	if (!ring.buf) {
		WRITE_ONCE(ring.dropped, ring.dropped + 1);
		return;
	}
	if (ring.in - ring.out < ring.size) {
		ring.buf[ring.in & (ring.size - 1)] = entry;
		WRITE_ONCE(ring.in, ring.in + 1);
	} else {
		WRITE_ONCE(ring.dropped, ring.dropped + 1);
	}
	if (ring.in - ring.out >= ring.size / 2)
		__wake_up(&slub_track[kind].slub_wait, TASK_NORMAL, 1, nullptr);
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
	if (cache == slub_track_cache)
		return;
	maybe_need_notify();
	if (object && is_tracked(cache))
		set_alloc_track(addr);
}

void vh_slab_free(void *, unsigned long addr, struct kmem_cache *cache)
{
	if (cache != slub_track_cache && is_tracked(cache))
		set_free_track(addr);
}
