// SPDX-License-Identifier: GPL-2.0-only
// Slab tracking: who allocates and frees the objects of one target cache.
//
// Probes in the slab allocator record (call stack, task) events of the target in a ring per kind; a
// thread per kind folds its ring into a tree of per-caller counters when the ring is half full; a
// readout empties the tree. Files: slub_record.cpp the probes, slub_drain.cpp the threads and
// trees, slub_switch.cpp the target and the switch, slub_read.cpp the readout, slub_track.cpp start
// and stop.
//
// Locks, in the order in which they nest:
// - memcheck_lock (memcheck.h): switching, readout, start and stop run under it, one at a time.
// - the module's parameter lock: specified_target.
// - the kernel's slab mutex: the list of caches, and a cache's mark.
// - slub_mutex, one a kind: one drain by the kind's thread at a time.
// - srb_array[kind].lock, a spinlock taken with interrupts off, since probes run in interrupts: the
//   ring's indices and entries and the tree of the same kind. The two are never held together.
// The kernel's wait-queue lock is taken inside a ring's lock, by the wake-up of a recorder.
#pragma once

#include <kernel/atomic.h>
#include <kernel/mutex.h>
#include <kernel/rbtree.h>
#include <kernel/sched.h>
#include <kernel/slab.h>
#include <kernel/spinlock.h>
#include <kernel/types.h>
#include <kernel/wait.h>

// Kinds of events; they index every per-kind array.
enum : int { SLUB_ALLOC = 0, SLUB_FREE = 1, SLUB_KINDS = 2 };

// A cache's flag bit that the kernel does not use: the cache is tracked.
inline constexpr unsigned int SLUB_TRACK_MARK = SLAB_SPARE_FLAG;

// Bytes of a cache name that is kept, the NUL included.
inline constexpr size_t slub_name_size = 64;

inline constexpr u64 slub_ring_entries = 8192; // a power of two

// One recorded event.
struct slub_track_entry {
	u64 handle; // stack-depot handle, or the caller's address where no stack could be saved
	s64 pid;    // 0 in interrupt context
	char comm[TASK_COMM_LEN]; // all zero in interrupt context
};

// Between 0 and size entries are pending: in - out. A counter's slot is its low bits.
struct slub_ringbuf {
	u32 kind;
	slub_track_entry *buf GUARDED_BY(lock); // null while the tracker is off
	raw_spinlock_t lock;
	u64 size GUARDED_BY(lock);
	u64 in GUARDED_BY(lock);
	u64 out GUARDED_BY(lock);
	// The task that works on the tree under the lock. The allocator may allocate for itself
	// while it serves a tree node (a leak detector does); recording that would take the lock
	// again. Written under the lock, read without: only the task itself ever finds its own name
	// there.
	const struct task_struct *tree_user;
};

// Marks a ring's tree as in use by the current task, under the ring's lock.
class [[nodiscard]] tree_use
{
public:
	explicit tree_use(slub_ringbuf &ring) : ring_(ring)
	{
		WRITE_ONCE(ring_.tree_user,
			   static_cast<const struct task_struct *>(helper_current()));
	}
	~tree_use()
	{
		WRITE_ONCE(ring_.tree_user, static_cast<const struct task_struct *>(nullptr));
	}
	tree_use(const tree_use &) = delete;
	tree_use &operator=(const tree_use &) = delete;

private:
	slub_ringbuf &ring_;
};

struct slub_track_state {
	u32 kind;
	struct wait_queue_head slub_wait;
	struct mutex slub_mutex;
	struct task_struct *task;
	struct rb_root root; // guarded by the lock of the ring of the same kind
};

// Events of one (call stack, task name) pair since the tree was last emptied.
struct slub_caller_node {
	struct rb_node node; // first, so that a tree node's address is its caller node's
	u64 handle;
	atomic_t count;
	char comm[TASK_COMM_LEN];
	s64 pid_min;
	s64 pid_max;
};

// One pair as the readout returns it.
struct slub_stack_record {
	u64 handle;
	s64 total; // events of all pairs with this handle, those left out included
	atomic_t count;
	char comm[TASK_COMM_LEN];
	s64 pid_min;
	s64 pid_max;
};

// What log lines say of the target; size 0 and an empty name when the cache no longer exists.
struct slub_target {
	unsigned int size; // bytes of an object with its metadata
	char name[slub_name_size];
};

KERNEL_C_BEGIN

extern slub_ringbuf srb_array[SLUB_KINDS];
extern slub_track_state slub_track[SLUB_KINDS];
extern int slub_track_flag;
extern struct kmem_cache *slub_track_cache;
extern struct list_head *tarn_slab_caches;
extern struct mutex *tarn_slab_mutex;
extern struct kmem_cache *max_slub_cache;
extern char *specified_target;

// Gives the rings their locks; once a load.
void slub_init_rings(void);

// Start and stop. Context: process, may sleep; under memcheck_lock. The init returns 0 or, with
// nothing left behind, -EINVAL.
int slub_track_init(void);
void slub_track_exit(void);

// Probes. Context: any; they never sleep.
void vh_slab_alloc_node(void *data, void *object, unsigned long addr, struct kmem_cache *cache);
void vh_slab_free(void *data, unsigned long addr, struct kmem_cache *cache);
void set_alloc_track(unsigned long addr);
void set_free_track(unsigned long addr);

// Folds a kind's ring into its tree. Context: any.
void slub_fetch_node(u32 kind);
// Creates and starts a kind's drain thread; -EINVAL when there is none to be had.
int slub_create_track(u32 kind, const char *name);
// Context: process, may sleep.
void slub_stop_track(u32 kind);
void slub_drop_tree(u32 kind);
// Frees a kind's ring; what is pending is folded into the tree before.
void slub_free_ring(u32 kind);

// Chooses the target cache: specified_target, else the unreclaimable one that takes most memory.
// Returns 0. Context: process, may sleep; under memcheck_lock, as the operations below.
int get_max_slub(void);
int tarn_slub_track_on(const char *name);
int tarn_slub_track_off(const char *name);
int tarn_slub_stack_open(int kind);
int tarn_slub_stack_close(void);
// Empties a kind's tree into records: the pairs seen often, grouped by stack, heaviest first.
long tarn_slub_stack_read(void *records, unsigned long max_records, int kind);
int compare_same_caller(const void *a, const void *b);
int compare_count(const void *a, const void *b);

// The target as it is now. Takes the slab mutex.
slub_target slub_describe_target(void);

// Frames of a record's handle, 0 for one that is no stack-depot handle. Context: any.
unsigned int slub_handle_frames(u64 handle, unsigned long **frames);

KERNEL_C_END
