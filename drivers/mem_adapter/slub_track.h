// SPDX-License-Identifier: GPL-2.0-only
// Slab tracking: who allocates and frees the objects of one target cache.
//
// Probes in the slab allocator record (call stack, task) events of the target in a ring per kind; a
// thread per kind folds its ring into a tree of per-caller counters when the ring is half full; a
// readout takes the tree and empties it. Files: slub_record.cpp the probes, slub_ring.cpp the
// rings, slub_drain.cpp the threads and trees, slub_target.cpp the target and the switch,
// slub_read.cpp the readout, slub_track.cpp start and stop.
//
// Locks, outermost first:
// - memcheck_lock (memcheck.h), a mutex: serialises switching, readout, start and stop.
// - the module's parameter lock, a mutex: protects the string specified_target.
// - the kernel's slab mutex: protects the list of caches and each cache's mark.
// - slub_mutex, a mutex per kind: held by the kind's thread while it drains.
// - srb_array[kind].lock, a raw spinlock per kind: protects the ring and the tree of that kind.
//   Taken with interrupts off, since probes run in interrupts, and therefore for a bounded time: a
//   drain lets go of it after every few entries, and a tree is emptied outside. The locks of the
//   two kinds are never held together. A recorder wakes the thread after it.
#pragma once

#include <kernel/atomic.h>
#include <kernel/mutex.h>
#include <kernel/rbtree.h>
#include <kernel/sched.h>
#include <kernel/slab.h>
#include <kernel/spinlock.h>
#include <kernel/types.h>
#include <kernel/wait.h>

#include "hot_words.h"

// Kinds of events; they index every per-kind array.
enum : int { SLUB_ALLOC = 0, SLUB_FREE = 1, SLUB_KINDS = 2 };

// A cache's flag bit that the kernel does not use: the cache is tracked.
inline constexpr unsigned int SLUB_TRACK_MARK = SLAB_SPARE_FLAG;

// Bytes kept of a cache name, including the NUL.
inline constexpr size_t slub_name_size = 64;

inline constexpr u64 slub_ring_entries = 8192; // a power of two

// One recorded event.
struct slub_track_entry {
	u64 handle; // stack depot handle, or the caller's address if no stack could be saved
	s64 pid;    // 0 in interrupt context
	char comm[TASK_COMM_LEN]; // all zero in interrupt context
};

// in - out entries are pending, 0 to size. The low bits of a counter select its slot.
//
// Each event of the target counts once: in, dropped or skipped; lost is a part of in. Tolerated
// race: parameters show in and lost without the lock, so while events come they may be one short.
//
// Aligned, so that events of one kind share no cache line with those of the other.
struct alignas(KERNEL_CACHE_LINE) slub_ringbuf {
	u64 in GUARDED_BY(lock); // also read without the lock, as is out
	u64 out GUARDED_BY(lock);
	raw_spinlock_t lock;
	slub_track_entry *buf GUARDED_BY(lock); // null while the tracker is off
	u64 size GUARDED_BY(lock);
	atomic64_t dropped;	   // no room, or no storage
	atomic64_t skipped;	   // the tracker's own traffic
	u64 lost GUARDED_BY(lock); // taken out, but without memory for a node
	u32 kind;
};

// The tasks that work on trees. Their events are the tracker's own. On a cache line of their own:
// each event of the target looks here, but the line changes only as often as a thread drains.
struct alignas(KERNEL_CACHE_LINE) slub_tree_tasks {
	// How many of the tasks below are set. While it is 0, no event looks any further.
	atomic_t tasks;
	// The task that works on a kind's tree under the lock of its ring. While the allocator
	// serves a tree node it may allocate for itself, as a leak detector does; recording that
	// would take the lock again. Tolerated race: written under the lock, read without. A task
	// finds itself here only if it wrote that itself.
	const struct task_struct *users[SLUB_KINDS];
	// The task that empties a tree it has taken. Set under memcheck_lock, read without, as
	// above.
	const struct task_struct *emptier;
};

extern "C" slub_tree_tasks slub_tree;

// Names the current task as the user of a tree.
class [[nodiscard]] tree_use
{
public:
	explicit tree_use(const struct task_struct *&user) : user_(user)
	{
		WRITE_ONCE(user_, static_cast<const struct task_struct *>(helper_current()));
		atomic_inc(&slub_tree.tasks);
	}
	~tree_use()
	{
		atomic_dec(&slub_tree.tasks);
		WRITE_ONCE(user_, static_cast<const struct task_struct *>(nullptr));
	}
	tree_use(const tree_use &) = delete;
	tree_use &operator=(const tree_use &) = delete;

private:
	const struct task_struct *&user_;
};

struct slub_track_state {
	u32 kind;
	struct wait_queue_head slub_wait;
	struct mutex slub_mutex;
	struct task_struct *task;
	struct rb_root root; // protected by the lock of the ring of the same kind
};

// Events of one (call stack, task name) pair since the tree was last emptied.
struct slub_caller_node {
	struct rb_node node; // first: a tree node is cast to its caller node
	u64 handle;
	atomic_t count;
	char comm[TASK_COMM_LEN];
	s64 pid_min;
	s64 pid_max;
};

// One pair as the readout returns it.
struct slub_stack_record {
	u64 handle;
	s64 total; // events of all pairs with this handle, including those left out
	atomic_t count;
	char comm[TASK_COMM_LEN];
	s64 pid_min;
	s64 pid_max;
};

// The target as log lines show it; size 0 and an empty name if the cache no longer exists.
struct slub_target {
	unsigned int size; // bytes of an object, including its metadata
	char name[slub_name_size];
};

// A kind's records, kept for the log.
struct slub_list {
	slub_stack_record *records;
	long num;
	bool taken; // from the tracker: otherwise there is nothing to log
	slub_target target;
};

struct irq_work;

KERNEL_C_BEGIN

extern slub_ringbuf srb_array[SLUB_KINDS];
extern slub_track_state slub_track[SLUB_KINDS];
extern struct list_head *tarn_slab_caches;
extern struct mutex *tarn_slab_mutex;
extern struct kmem_cache *max_slub_cache;
extern char *specified_target;

// Start and stop. Init returns 0, or -EINVAL with nothing left behind. Context: process, may sleep;
// called with memcheck_lock held.
int slub_track_init(void);
void slub_track_exit(void);

// Probes. Context: any; never sleep.
void vh_slab_alloc_node(void *data, void *object, unsigned long addr, struct kmem_cache *cache);
void vh_slab_free(void *data, unsigned long addr, struct kmem_cache *cache);
// Record an event of the target.
void set_alloc_track(unsigned long addr);
void set_free_track(unsigned long addr);

// What happened to the events of each kind since tracking was last switched on. Recorded and the
// other three together are all of them. Context: any.
void slub_count_recorded(u64 counts[SLUB_KINDS]);
void slub_count_dropped(u64 counts[SLUB_KINDS]);
void slub_count_lost(u64 counts[SLUB_KINDS]);
void slub_count_skipped(u64 counts[SLUB_KINDS]);

// Initialises the rings' locks. Call once per load.
void slub_init_rings(void);
// Gives both rings their storage. Returns 0, or -ENOMEM with no ring left. Context: process, may
// sleep.
int slub_create_ringbuf(void);
// Tells lmkd of a slab leak. Context: interrupt. The probes must not do it themselves: it prints
// and wakes a socket, and the allocator's caller may hold any lock that this takes, the console's
// among them.
void slub_notify_leak(struct irq_work *work);
// Waits for a notification on its way. Call after the last probe. Context: process, may sleep.
void slub_cancel_notify(void);

// Folds a kind's pending events into its tree and frees its ring. Context: process, may sleep.
void slub_free_ring(u32 kind);

// Folds a kind's ring into its tree. An event without memory for its node is lost. Context: any;
// never sleeps.
void slub_fetch_node(u32 kind);
// Folds a few entries of buf, which is or was the ring's, into the tree. Returns whether there may
// be more. Context: any; never sleeps.
bool slub_drain_some(slub_ringbuf &ring, const slub_track_entry *buf, struct rb_root &root)
	REQUIRES(ring.lock);
// Takes a kind's tree from the tracker. Context: any; never sleeps.
struct rb_root slub_take_tree(u32 kind);
// Frees a kind's tree. Context: any; never sleeps.
void slub_drop_tree(u32 kind);
// Creates and starts a kind's drain thread. Returns 0, or -EINVAL if the kernel refuses one.
// Context: process, may sleep.
int slub_create_track(u32 kind, const char *name);
// Stops that thread, if it runs. Context: process, may sleep.
void slub_stop_track(u32 kind);

// The operations of slub_page_stack (memcheck.h). Context: process, may sleep; called through that
// table with memcheck_lock held.
int tarn_slub_track_on(const char *name);
int tarn_slub_track_off(const char *name);
int tarn_slub_stack_open(int kind);
int tarn_slub_stack_close(void);
// Empties a kind's tree and writes at most max_records records: the pairs seen often, grouped by
// stack, heaviest first. Returns how many it wrote.
long tarn_slub_stack_read(void *records, unsigned long max_records, int kind);
// Logs what a readout took. Printing may be slow: call it without memcheck_lock. Context: process.
void slub_log_list(const slub_list &list, int kind);
int compare_same_caller(const void *a, const void *b);
int compare_count(const void *a, const void *b);

// Describes the target. Context: process, may sleep: takes the slab mutex.
slub_target slub_describe_target(void);

// Fetches the frames of a record's handle and returns their number: 0 for a handle that is a
// caller's address. Context: any.
unsigned int slub_handle_frames(u64 handle, unsigned long **frames);

KERNEL_C_END
