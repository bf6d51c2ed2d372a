// SPDX-License-Identifier: GPL-2.0-only
// What slab tracking does under its locks, and what only after them.
#include "slub_fixture.h"

#include <hosted/vendor_hooks.h>
#include <kernel/irq_work.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

bool is_node_cache(const kmem_cache *cache)
{
	return helper_kmem_cache_name(cache) == std::string_view("slub_track_cache");
}

// Attaches a probe to a hook for a scope.
class attached_probe
{
public:
	template <class Probe>
	attached_probe(tracepoint &hook, Probe *probe, void *data = nullptr)
		: hook_(hook), probe_(reinterpret_cast<void *>(probe)), data_(data)
	{
		EXPECT_EQ(tracepoint_probe_register(&hook_, probe_, data_), 0);
	}
	~attached_probe()
	{
		tracepoint_probe_unregister(&hook_, probe_, data_);
	}
	attached_probe(const attached_probe &) = delete;
	attached_probe &operator=(const attached_probe &) = delete;

private:
	tracepoint &hook_;
	void *probe_;
	void *data_;
};

class slub_locks : public slub_tracking
{
protected:
	// Events of one kind, each with a call stack of its own.
	void record_stacks(int kind, u64 times)
	{
		for (u64 i = 0; i < times; i++) {
			const frame_scope in(symbol_address("place", 0, 0) + (i + 1) * 64);

			if (kind == SLUB_ALLOC)
				record_alloc(*cache);
			else
				record_free(*cache);
		}
	}
	void hunt()
	{
		allocate_in("open", *cache, 60);
		record_free(*cache, 70);
		ASSERT_EQ(command(off), 0);
		forget_log();
	}
	static constexpr const char *step = "[tarn_slub_stack_read]";
};

// A console may be slow, and commands must not wait for it.
TEST_F(slub_locks, a_readouts_lists_are_logged_after_all_locks)
{
	bool locked = false;
	hunt();
	{
		const log_watch watch([&](const std::string &text) {
			if (text.find("tarn_slub_stack_read") != std::string::npos)
				locked |= !self().held.empty();
		});
		read();
	}
	EXPECT_FALSE(locked);
	EXPECT_THAT(errors(step),
		    ElementsAre(HasSubstr("top0 Alloc"), HasSubstr("  open+"),
				HasSubstr("  invoke_"), HasSubstr("victim Alloc 1 items"),
				HasSubstr("top0 Free"), HasSubstr("victim Free 1 items")));

	// A text that is cut in the first kind leaves the second to the next readout.
	track("victim");
	hunt();
	EXPECT_EQ(client.read_stacks(MEMTYPE_SLUB, 40).status, 0);
	EXPECT_THAT(errors(" items"), ElementsAre(HasSubstr("victim Alloc 1 items")));

	// The lists come before the copy, which fails here.
	user_record user(memcheck_info{MEMTYPE_SLUB, 0, 4096});
	forget_log();
	EXPECT_EQ(client.leak_read(user.address()), -EFAULT);
	EXPECT_THAT(errors(" items"), ElementsAre(HasSubstr("victim Alloc 0 items"),
						  HasSubstr("victim Free 1 items")));
}

// Counts the nodes that are allocated between two moments at which interrupts are served.
irq_work served;
unsigned nodes, most_nodes;
void on_served(irq_work *)
{
	nodes = 0;
}
void count_nodes(void *, void *, unsigned long, kmem_cache *cache)
{
	if (!is_node_cache(cache))
		return;
	most_nodes = std::max(most_nodes, ++nodes);
	irq_work_queue(&served);
}

TEST_F(slub_locks, interrupts_are_served_every_128_entries_of_a_drain)
{
	helper_init_irq_work(&served, on_served);
	const attached_probe probe(__tracepoint_android_vh_slab_alloc_node, count_nodes);
	for (const bool by_thread : {true, false}) {
		most_nodes = 0;
		hold_thread("slub-alloc");
		record_stacks(SLUB_ALLOC, slub_ring_entries);
		if (by_thread) {
			let_go_thread("slub-alloc");
			settle();
		}
		ASSERT_EQ(command(off), 0);
		if (!by_thread)
			let_go_thread("slub-alloc");
		EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(slub_ring_entries, slub_ring_entries));
		EXPECT_EQ(most_nodes, 128U);
		read();
		ASSERT_EQ(command(on), 0);
	}
}

// While the tracker frees a node, an interrupt frees an object of the target.
struct freed_node {
	kmem_cache *target;
	unsigned times;
	bool atomic;
};
void interrupt_node_free(void *data, unsigned long, kmem_cache *cache)
{
	auto *node = static_cast<freed_node *>(data);

	if (!is_node_cache(cache))
		return;
	node->times++;
	node->atomic |= self().irqs_off || !self().held.empty();
	record_free(*node->target);
	if (node->atomic)
		return;
	const context_scope interrupt(context_kind::hardirq);

	record_free(*node->target);
}

TEST_F(slub_locks, a_tree_is_emptied_with_interrupts_on)
{
	freed_node node{cache, 0, false};
	record_stacks(SLUB_ALLOC, half_ring);
	settle();
	{
		const attached_probe probe(__tracepoint_android_vh_slab_free, interrupt_node_free,
					   &node);
		auto *read_records =
			internal<long(void *, unsigned long, int)>("tarn_slub_stack_read");
		slub_stack_record record{};
		EXPECT_EQ(read_records(&record, 1, SLUB_ALLOC), 0);
	}
	EXPECT_EQ(node.times, half_ring);
	EXPECT_FALSE(node.atomic);
	// Only the interrupts' frees are not the tracker's own.
	EXPECT_EQ(count("slub_recorded").second, half_ring);
	EXPECT_EQ(count("slub_skipped").second, half_ring);
}

} // namespace
