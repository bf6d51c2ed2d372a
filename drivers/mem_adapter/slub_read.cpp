// SPDX-License-Identifier: GPL-2.0-only
// The readout of a kind's tree: the pairs seen often, grouped by call stack, heaviest first.
// Locks: see slub_track.h. The tree is taken under its ring's lock, emptied and sorted with only
// memcheck_lock held, and logged without a lock.
#include <kernel/sort.h>
#include <kernel/stackdepot.h>
#include <kernel/string.h>

#include "log.h"
#include "slub_track.h"

namespace
{

constexpr int reported_count = 50; // rarer pairs say nothing about a leak
constexpr long reported_tasks = 3; // task names per call stack

// Compares two values as sort() expects it, for ascending order.
template <class T>
int order(T a, T b)
{
	return (a > b) - (a < b);
}

void fill_record(slub_stack_record &record, const slub_caller_node &node)
{
	record.handle = node.handle;
	record.total = 0;
	atomic_set(&record.count, atomic_read(&node.count));
	memcpy(record.comm, node.comm, sizeof(record.comm));
	record.pid_min = node.pid_min;
	record.pid_max = node.pid_max;
}

// Takes the tree and empties it in key order. Returns the number of records written.
long take_tree(int kind, slub_stack_record *records, unsigned long max_records)
{
	struct rb_root root = slub_take_tree(kind);
	unsigned long written = 0;
	const tree_use use(slub_tree.emptier);
	struct rb_node *at = rb_first(&root);

	while (at) {
		auto *node = reinterpret_cast<slub_caller_node *>(at);

		at = rb_next(at);
		if (written < max_records && atomic_read(&node->count) >= reported_count)
			fill_record(records[written++], *node);
		rb_erase(&node->node, &root);
		kmem_cache_free(hot.slub_track_cache, node);
	}
	return static_cast<long>(written);
}

// Sets the total of each run of records with one handle, and keeps the first few of the run.
// Returns the number kept.
long keep_heaviest_of_stack(slub_stack_record *records, long num)
{
	long kept = 0;

	for (long start = 0, end = 0; start < num; start = end) {
		// A 32-bit sum that may overflow: unsigned, so that it wraps.
		u32 sum = 0;

		for (end = start; end < num && records[end].handle == records[start].handle; end++)
			sum += static_cast<u32>(atomic_read(&records[end].count));
		for (long i = start; i < end && i < start + reported_tasks; i++) {
			records[kept] = records[i];
			records[kept++].total = static_cast<s32>(sum);
		}
	}
	return kept;
}

void log_record(long i, const char *kind, const slub_stack_record &record, unsigned int object_size)
{
	const int count = atomic_read(&record.count);
	unsigned long *frames = nullptr;
	const unsigned int depth = slub_handle_frames(record.handle, &frames);

	MEM_LOG(KERN_ERR, "tarn_slub_stack_read",
		"top%d %s %pS cnt:[%d/%lu] size: %d KB pid:[%ld-%ld] %s\n", static_cast<int>(i),
		kind, reinterpret_cast<void *>(record.handle), count,
		static_cast<unsigned long>(record.total),
		static_cast<int>(static_cast<u32>(count) * object_size / 1024),
		static_cast<long>(record.pid_min), static_cast<long>(record.pid_max), record.comm);
	for (unsigned int f = 0; f < depth; f++)
		MEM_LOG(KERN_ERR, "tarn_slub_stack_read", "        %pS\n",
			reinterpret_cast<void *>(frames[f]));
}

} // namespace

// An event without a saved stack has its caller's address as its handle. Kernel addresses lie above
// 4 GiB, depot handles below.
unsigned int slub_handle_frames(u64 handle, unsigned long **frames)
{
	if (!handle || handle >> 32)
		return 0;
	return stack_depot_fetch(static_cast<depot_stack_handle_t>(handle), frames);
}

int compare_same_caller(const void *a, const void *b)
{
	const auto *x = static_cast<const slub_stack_record *>(a);
	const auto *y = static_cast<const slub_stack_record *>(b);

	if (x->handle != y->handle)
		return order(x->handle, y->handle);
	return order(atomic_read(&y->count), atomic_read(&x->count));
}

int compare_count(const void *a, const void *b)
{
	const auto *x = static_cast<const slub_stack_record *>(a);
	const auto *y = static_cast<const slub_stack_record *>(b);

	if (x->total != y->total)
		return order(y->total, x->total);
	return order(atomic_read(&y->count), atomic_read(&x->count));
}

long tarn_slub_stack_read(void *buffer, unsigned long max_records, int kind)
{
	if ((kind != SLUB_ALLOC && kind != SLUB_FREE) || !max_slub_cache) {
		MEM_ERR("type %d invalid or max_slub_cache is null\n", kind);
		return 0;
	}
	auto *records = static_cast<slub_stack_record *>(buffer);
	long num = records ? take_tree(kind, records, max_records) : 0;

	if (num > 0) {
		const auto count = static_cast<size_t>(num);

		sort(records, count, sizeof(*records), compare_same_caller, nullptr);
		num = keep_heaviest_of_stack(records, num);
		sort(records, static_cast<size_t>(num), sizeof(*records), compare_count, nullptr);
	}
	return num;
}

void slub_log_list(const slub_list &list, int kind)
{
	const char *kind_text = kind == SLUB_ALLOC ? "Alloc" : "Free";

	if (!list.taken)
		return;
	for (long i = 0; i < list.num; i++)
		log_record(i, kind_text, list.records[i], list.target.size);
	MEM_LOG(KERN_ERR, "tarn_slub_stack_read", "%s %s %ld items\n", list.target.name, kind_text,
		list.num);
}
