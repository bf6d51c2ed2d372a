// SPDX-License-Identifier: GPL-2.0-only
// The rings of recorded events: their storage comes and goes as tracking is switched on and off,
// their locks stay from load to unload.
#include <kernel/err.h>
#include <kernel/vmalloc.h>

#include "log.h"
#include "slub_track.h"

constinit slub_ringbuf srb_array[SLUB_KINDS] = {};

namespace
{

constinit struct lock_class_key ring_lock_key = {};

bool create_ring(u32 kind)
{
	// Clearing the flag by hand leaves a ring that no switch-off has freed.
	slub_free_ring(kind);

	auto *buf = static_cast<slub_track_entry *>(
		helper_vmalloc(slub_ring_entries * sizeof(slub_track_entry)));

	if (!buf)
		return false;
	slub_ringbuf &ring = srb_array[kind];
	const irqsave_guard guard(ring.lock);

	ring.buf = buf;
	WRITE_ONCE(ring.in, 0ULL);
	WRITE_ONCE(ring.out, 0ULL);
	atomic64_xchg_relaxed(&ring.dropped, 0);
	WRITE_ONCE(ring.lost, 0ULL);
	atomic64_xchg_relaxed(&ring.skipped, 0);
	ring.size = slub_ring_entries;
	ring.kind = kind;
	return true;
}

} // namespace

// Not at switch-on: a readout may hold a ring's lock at that moment.
void slub_init_rings(void)
{
	for (slub_ringbuf &ring : srb_array)
		helper_raw_spin_lock_init(&ring.lock, "srb_array[kind].lock", &ring_lock_key);
}

int slub_create_ringbuf(void)
{
	if (!create_ring(SLUB_ALLOC)) {
		MEM_ERR("create alloc ringbuf failed\n");
		return -ENOMEM;
	}
	if (!create_ring(SLUB_FREE)) {
		MEM_ERR("create free ringbuf failed\n");
		slub_free_ring(SLUB_ALLOC);
		return -ENOMEM;
	}
	return 0;
}

void slub_free_ring(u32 kind)
{
	slub_ringbuf &ring = srb_array[kind];
	slub_track_entry *buf = nullptr;
	bool more = false;
	{
		const irqsave_guard guard(ring.lock);

		buf = ring.buf;
		ring.buf = nullptr;
		more = buf != nullptr;
	}
	// Nothing is added from here on, and the thread leaves the rest alone.
	while (more) {
		const irqsave_guard guard(ring.lock);

		more = slub_drain_some(ring, buf, slub_track[kind].root);
	}
	vfree(buf);
}

void slub_count_recorded(u64 counts[SLUB_KINDS]) NO_THREAD_SAFETY_ANALYSIS
{
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++) {
		// Before in: what is lost has come in.
		const u64 lost = READ_ONCE(srb_array[kind].lost);
		const u64 in = READ_ONCE(srb_array[kind].in);

		counts[kind] = in > lost ? in - lost : 0;
	}
}

void slub_count_dropped(u64 counts[SLUB_KINDS])
{
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++)
		counts[kind] = static_cast<u64>(atomic64_read(&srb_array[kind].dropped));
}

void slub_count_lost(u64 counts[SLUB_KINDS]) NO_THREAD_SAFETY_ANALYSIS
{
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++)
		counts[kind] = READ_ONCE(srb_array[kind].lost);
}

void slub_count_skipped(u64 counts[SLUB_KINDS])
{
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++)
		counts[kind] = static_cast<u64>(atomic64_read(&srb_array[kind].skipped));
}
