// SPDX-License-Identifier: GPL-2.0-only
// The drain threads, and the trees into which they fold the rings. Locks: see slub_track.h.
#include <kernel/err.h>
#include <kernel/kthread.h>
#include <kernel/string.h>

#include "log.h"
#include "slub_track.h"

KERNEL_C_BEGIN
int kslubtrackd(void *data);
KERNEL_C_END

constinit slub_track_state slub_track[SLUB_KINDS] = {};
constinit slub_tree_tasks slub_tree = {};

namespace
{

// Entries that one hold of a ring's lock folds into the tree: interrupts are off meanwhile.
constexpr u64 drain_batch = 128;

constinit struct lock_class_key slub_wait_key = {};
constinit struct lock_class_key slub_mutex_key = {};

// A task name as two little-endian numbers: the tree is ordered by these, not as text.
struct comm_key {
	s64 head;
	s64 tail;

	explicit comm_key(const char (&comm)[TASK_COMM_LEN])
	{
		memcpy(&head, comm, sizeof(head));
		memcpy(&tail, comm + sizeof(head), sizeof(tail));
	}
};

// Negative, 0 or positive, as strcmp(): the entry's key against the node's.
int compare_key(const slub_track_entry &entry, const slub_caller_node &node)
{
	if (entry.handle != node.handle)
		return entry.handle < node.handle ? -1 : 1;
	const comm_key a(entry.comm);
	const comm_key b(node.comm);

	if (a.head != b.head)
		return a.head < b.head ? -1 : 1;
	if (a.tail != b.tail)
		return a.tail < b.tail ? -1 : 1;
	return 0;
}

slub_caller_node *caller_of(struct rb_node *node)
{
	return reinterpret_cast<slub_caller_node *>(node);
}

void count_again(slub_caller_node &node, s64 pid)
{
	atomic_inc(&node.count);
	if (pid < node.pid_min)
		node.pid_min = pid;
	else if (pid > node.pid_max)
		node.pid_max = pid;
}

// Without memory for a node the event is lost: nothing here may wait for memory. Nor may the
// allocator complain: it would print under the ring's lock, which a probe below the console's lock
// may wait for. Returns whether the event is counted.
bool add_caller(const slub_track_entry &entry, struct rb_root &root, struct rb_node *parent,
		struct rb_node **link)
{
	auto *node = static_cast<slub_caller_node *>(
		helper_kmem_cache_alloc(hot.slub_track_cache, GFP_ATOMIC | __GFP_NOWARN));

	if (!node)
		return false;
	node->handle = entry.handle;
	atomic_set(&node->count, 1);
	memcpy(node->comm, entry.comm, sizeof(node->comm));
	node->pid_min = entry.pid;
	node->pid_max = entry.pid;
	rb_link_node(&node->node, parent, link);
	rb_insert_color(&node->node, &root);
	return true;
}

bool count_entry(const slub_track_entry &entry, struct rb_root &root)
{
	struct rb_node **link = &root.rb_node;
	struct rb_node *parent = nullptr;

	while (*link) {
		slub_caller_node *node = caller_of(*link);
		const int order = compare_key(entry, *node);

		if (order == 0) {
			count_again(*node, entry.pid);
			return true;
		}
		parent = *link;
		link = order < 0 ? &parent->rb_left : &parent->rb_right;
	}
	return add_caller(entry, root, parent, link);
}

} // namespace

static_assert(offsetof(slub_caller_node, node) == 0);

// tree_use keeps events of the allocations below from coming back for this lock.
bool slub_drain_some(slub_ringbuf &ring, const slub_track_entry *buf, struct rb_root &root)
{
	const tree_use use(slub_tree.users[ring.kind]);

	for (u64 i = 0; i < drain_batch && ring.in != ring.out; i++) {
		if (!count_entry(buf[ring.out & (ring.size - 1)], root))
			WRITE_ONCE(ring.lost, ring.lost + 1);
		WRITE_ONCE(ring.out, ring.out + 1);
	}
	return ring.in != ring.out;
}

// No more than a ring holds: what comes meanwhile wakes the thread again.
void slub_fetch_node(u32 kind)
{
	slub_ringbuf &ring = srb_array[kind];

	for (u64 entries = 0; entries < slub_ring_entries; entries += drain_batch) {
		const irqsave_guard guard(ring.lock);

		// Tracking may have been switched off since the last time.
		if (!ring.buf || !slub_drain_some(ring, ring.buf, slub_track[kind].root))
			return;
	}
}

struct rb_root slub_take_tree(u32 kind)
{
	const irqsave_guard guard(srb_array[kind].lock);
	const struct rb_root tree = slub_track[kind].root;

	slub_track[kind].root = {};
	return tree;
}

void slub_drop_tree(u32 kind)
{
	struct rb_root root = slub_take_tree(kind);

	while (struct rb_node *node = rb_first(&root)) {
		rb_erase(node, &root);
		kmem_cache_free(hot.slub_track_cache, caller_of(node));
	}
}

int kslubtrackd(void *data)
{
	auto *state = static_cast<slub_track_state *>(data);

	while (!kthread_should_stop()) {
		struct wait_queue_entry wait;

		helper_init_wait(&wait);
		prepare_to_wait(&state->slub_wait, &wait, TASK_INTERRUPTIBLE);
		// A stop request from before the state was set would not wake us again.
		if (!kthread_should_stop())
			schedule();
		finish_wait(&state->slub_wait, &wait);

		const mutex_guard guard(state->slub_mutex);

		if (READ_ONCE(hot.slub_track_flag))
			slub_fetch_node(state->kind);
	}
	return 0;
}

int slub_create_track(u32 kind, const char *name)
{
	slub_track_state &state = slub_track[kind];

	__init_waitqueue_head(&state.slub_wait, "&slub_track[type].slub_wait", &slub_wait_key);
	__mutex_init(&state.slub_mutex, "&slub_track[type].slub_mutex", &slub_mutex_key);
	state.root = {};
	state.kind = kind;

	struct task_struct *task = kthread_create_on_node(kslubtrackd, &state, -1, "slub-%s", name);

	if (IS_ERR(task)) {
		state.task = nullptr;
		MEM_ERR("slub_ktrackd failed!\n");
		return -EINVAL;
	}
	wake_up_process(task);
	state.task = task;
	return 0;
}

void slub_stop_track(u32 kind)
{
	slub_track_state &state = slub_track[kind];

	if (state.task)
		kthread_stop(state.task);
	state.task = nullptr;
}
