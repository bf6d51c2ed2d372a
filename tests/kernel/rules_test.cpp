// SPDX-License-Identifier: GPL-2.0-only
// Rules that hold for every part of the kernel interface: where calls may sleep, what callbacks may
// do, what must be given back, and what fails on request.
#include <array>

#include <hosted/netlink.h>
#include <hosted/slab.h>
#include <hosted/sysfs.h>
#include <hosted/vendor_hooks.h>
#include <hosted/vmalloc.h>
#include <kernel/kthread.h>
#include <kernel/netlink.h>
#include <kernel/notifier.h>
#include <kernel/stackdepot.h>
#include <kernel/sysfs.h>
#include <kernel/timer.h>
#include <kernel/uaccess.h>
#include <kernel/workqueue.h>
#include <platform/ember.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace
{

// One of each thing that a module can register. Each of them calls body.
class rules : public kernel_test
{
protected:
	rules()
	{
		body = [] {
		};
		init_timer_key(
			&timer, [](timer_list *) { body(); }, 0, "timer", &timer_key);
		helper_init_work(&work, [](work_struct *) { body(); });
		helper_netlink_cfg_set_input(&cfg, [](sk_buff *) { body(); });
		helper_kobj_attribute_init(
			&attribute, "file", 0444,
			[](kobject *, kobj_attribute *, char *) { return body(), 0L; }, nullptr);
		const std::array attributes{&attribute};
		helper_attribute_group_init(&group, attributes.data(), attributes.size());
		notifier.notifier_call = [](notifier_block *, unsigned long, void *) {
			return body(), 0;
		};
	}
	// Each registers its thing and makes its callback run.
	void run_timer()
	{
		mod_timer(&timer, 0);
		advance(1);
	}
	void run_work()
	{
		helper_queue_work(system_wq, &work);
		settle();
	}
	void run_thread()
	{
		const auto run = [](void *) {
			return body(), 0;
		};
		thread = kthread_create_on_node(run, nullptr, -1, "thread");
		wake_up_process(thread);
		settle();
	}
	void run_input()
	{
		socket = __netlink_kernel_create(&init_net, 31, nullptr, &cfg);
		netlink_socket(31, 1).send(std::array<std::byte, 16>{});
	}
	void run_handler()
	{
		std::string text;
		directory = kobject_create_and_add("directory", kernel_kobj);
		sysfs_create_group(directory, &group);
		read_file("/sys/kernel/directory/file", text);
	}
	void run_probe()
	{
		tracepoint_probe_register(&hook, probe, nullptr);
		trace_android_vh_mm_direct_reclaim_enter(0);
	}
	void run_notifier()
	{
		register_vmap_purge_notifier(&notifier);
		set_vmalloc_space(0);
		vmalloc_area(1);
	}

	static inline std::function<void()> body;
	timer_list timer{};
	lock_class_key timer_key{};
	work_struct work{};
	netlink_kernel_cfg cfg{};
	kobj_attribute attribute{};
	attribute_group group{};
	notifier_block notifier{};
	tracepoint &hook = __tracepoint_android_vh_mm_direct_reclaim_enter;
	void *probe = reinterpret_cast<void *>(+[](void *, unsigned) { body(); });
	kobject *directory = nullptr;
	sock *socket = nullptr;
	task_struct *thread = nullptr;
};
using rules_death = rules;

TEST_F(rules_death, a_call_that_may_sleep_stops_in_atomic_context)
{
	kmem_cache *cache = helper_kmem_cache_create("cache", 8, 0, 0, nullptr);
	unsigned long word = 1;
	{
		const context_scope interrupt(context_kind::hardirq);
		EXPECT_DEATH(const mutex_guard guard(slab_mutex()), "context: mutex_lock");
		EXPECT_DEATH(schedule(), "atomic context: schedule");
		EXPECT_DEATH(synchronize_rcu(), "atomic context: synchronize_rcu");
		EXPECT_DEATH(run_thread(), "atomic context: kthread_create_on_node");
		EXPECT_DEATH(cancel_work_sync(&work), "atomic context: cancel_work_sync");
		EXPECT_DEATH(timer_delete_sync(&timer), "may interrupt the callback");
		EXPECT_DEATH(vfree(nullptr), "atomic context: vfree");
		EXPECT_DEATH(run_input(), "atomic context: netlink_kernel_create");
		EXPECT_DEATH(netlink_unicast(nullptr, helper_nlmsg_new(4, GFP_ATOMIC), 1, 0),
			     "netlink_unicast");
		EXPECT_DEATH(run_handler(), "atomic context: kobject_create_and_add");
		EXPECT_DEATH(run_probe(), "atomic context: tracepoint_probe_register");
		EXPECT_DEATH(helper_copy_from_user(&word, nullptr, 1), "context: copy_from_user");
		EXPECT_DEATH(helper_copy_to_user(nullptr, &word, 1), "context: copy_to_user");
		EXPECT_DEATH(helper_nlmsg_new(4, GFP_KERNEL), "atomic context: nlmsg_new");
		EXPECT_DEATH(stack_depot_init(), "atomic context: stack_depot_init");
		EXPECT_DEATH(stack_depot_save(&word, 1, GFP_ATOMIC), "before stack_depot_init");
		EXPECT_DEATH(helper_kmem_cache_alloc(cache, GFP_KERNEL), "kmem_cache_alloc");
		kmem_cache_free(cache, helper_kmem_cache_alloc(cache, GFP_ATOMIC));
		helper_nlmsg_free(helper_nlmsg_new(4, GFP_ATOMIC));
	}
	kmem_cache_destroy(cache);
}

TEST_F(rules_death, a_callback_leaves_nothing_behind_and_does_not_wait_for_itself)
{
	const auto stops = [](const std::function<void()> &run, const std::string &name,
			      const std::function<void()> &remove, const char *deadlock) {
		body = helper_rcu_read_lock;
		EXPECT_DEATH(run(), "left behind by a callback: " + name + " began");
		body = remove;
		EXPECT_DEATH(run(), deadlock) << name;
	};
	stops([&] { run_timer(); }, "timer", [&] { timer_delete_sync(&timer); }, "itself to end");
	stops([&] { run_work(); }, "work item", [&] { cancel_work_sync(&work); }, "itself to end");
	stops([&] { run_thread(); }, "thread", [&] { kthread_stop(thread); }, "itself to end");
	body = helper_rcu_read_lock;
	EXPECT_DEATH(run_input(), "left behind by a callback: netlink input began");
	stops([&] { run_handler(); }, "sysfs handler", [&] { kobject_put(directory); },
	      "removed by a handler of its own");
	stops([&] { run_notifier(); }, "vmap purge notifier",
	      [&] { unregister_vmap_purge_notifier(&notifier); }, "deadlock");
	stops([&] { run_probe(); }, "android_vh_mm_direct_reclaim_enter",
	      [&] { tracepoint_probe_unregister(&hook, probe, nullptr); }, "atomic context");
}

TEST_F(rules_death, a_removal_under_a_lock_that_the_callback_takes_stops)
{
	static test_mutex slow;
	static test_spinlock fast;
	slow.init("slow");
	fast.init("fast");
	body = [] {
		const irqsave_guard guard(fast.lock);
	};
	run_timer();
	EXPECT_DEATH(
		{
			const irqsave_guard guard(fast.lock);
			timer_delete_sync(&timer);
		},
		"lock order: timer is taken under fast");
	body = [] {
		const mutex_guard guard(slow.lock);
	};
	const auto stops = [](const auto &run, const auto &remove) {
		run();
		const mutex_guard guard(slow.lock);
		remove();
	};
	EXPECT_DEATH(stops([&] { run_handler(); }, [&] { kobject_put(directory); }), "lock order");
	EXPECT_DEATH(stops([&] { run_work(); }, [&] { cancel_work_sync(&work); }), "lock order");
}

TEST_F(rules_death, everything_not_given_back_is_listed_as_left_over)
{
	run_handler();
	run_input();
	run_probe();
	run_work();
	hold_thread("kworker/0:1");
	run_work();
	thread = kthread_create_on_node([](void *) { return 0; }, nullptr, -1, "parked");
	mod_timer(&timer, 100);
	register_vmap_purge_notifier(&notifier);
	sk_buff *buffer = helper_nlmsg_new(4, GFP_KERNEL);
	kmem_cache *cache = helper_kmem_cache_create("cache", 8, 0, 0, nullptr);
	void *area = helper_vmalloc(5000);
	cdev_tevent *event = cdev_tevent_alloc(1000);
	EXPECT_THAT(leftovers(),
		    UnorderedElementsAre("sysfs directory /sys/kernel/directory",
					 "sysfs file /sys/kernel/directory/file",
					 "netlink socket of unit 31", "1 netlink buffer(s)",
					 "slab cache cache", "vmalloc area of 8192 bytes",
					 "ember event 1000", "timer timer, armed",
					 "work item, queued", StartsWith("kernel thread parked/"),
					 StartsWith("1 probe(s) on tracepoint android"),
					 StartsWith("vmap purge notifier")));

	EXPECT_EQ(tracepoint_probe_unregister(&hook, probe, nullptr), 0);
	EXPECT_DEATH(tracepoint_probe_unregister(&hook, probe, nullptr), "no such probe");
	EXPECT_EQ(unregister_vmap_purge_notifier(&notifier), 0);
	cdev_tevent_destroy(event);
	vfree(area);
	kmem_cache_destroy(cache);
	helper_nlmsg_free(buffer);
	EXPECT_EQ(timer_delete_sync(&timer), 1);
	EXPECT_EQ(kthread_stop(thread), -EINTR) << "it never ran";
	EXPECT_TRUE(cancel_work_sync(&work));
	netlink_kernel_release(socket);
	kobject_put(directory);
	EXPECT_THAT(leftovers(), testing::IsEmpty());
}

TEST_F(rules_death, nothing_is_registered_twice_or_used_before_or_after_its_life)
{
	run_probe();
	EXPECT_DEATH(run_probe(), "registered twice");
	tracepoint_probe_unregister(&hook, probe, nullptr);
	register_vmap_purge_notifier(&notifier);
	EXPECT_DEATH(register_vmap_purge_notifier(&notifier), "registered twice");
	unregister_vmap_purge_notifier(&notifier);
	run_handler();
	kobject_put(directory);
	EXPECT_DEATH(kobject_put(directory), "does not exist");
	run_input();
	netlink_kernel_release(socket);
	EXPECT_DEATH(netlink_kernel_release(socket), "not open");
	mod_timer(&timer, 100);
	EXPECT_DEATH(init_timer_key(&timer, nullptr, 0, "timer", &timer_key), "is armed");
	timer_delete_sync(&timer);
	timer = {};
	work = {};
	EXPECT_DEATH(mod_timer(&timer, 0), "the timer was never initialised");
	EXPECT_DEATH(helper_queue_work(system_wq, &work), "item was never initialised");
}

TEST_F(rules_death, calls_fail_on_request_once_or_from_then_on)
{
	{
		const fault_scope fault("a", 2);
		EXPECT_FALSE(should_fail("a"));
		EXPECT_FALSE(should_fail("b"));
		EXPECT_FALSE(fault.hit());
		EXPECT_TRUE(should_fail("a"));
		EXPECT_FALSE(should_fail("a"));
		EXPECT_TRUE(fault.hit());
		EXPECT_DEATH(const fault_scope second, "another one is open");
	}
	EXPECT_FALSE(should_fail("a"));
	const fault_scope fault("vzalloc", 1, fault_scope::mode::from_then_on);
	vfree(helper_vmalloc(1));
	EXPECT_FALSE(helper_vzalloc(1));
	EXPECT_FALSE(helper_vmalloc(1));
	EXPECT_FALSE(helper_kmem_cache_create("x", 8, 0, 0, nullptr));
	EXPECT_THAT(fault.calls(),
		    testing::ElementsAre(fallible_call{"vmalloc", 1}, fallible_call{"vzalloc", 1},
					 fallible_call{"vmalloc", 2},
					 fallible_call{"kmem_cache_create", 1}));
}

TEST(machine_death, stops_what_is_left_behind)
{
	const auto left_behind = [] {
		const machine booted;
		EXPECT_THROW(machine(), std::logic_error) << "one at a time";
		kobject_create_and_add("left", kernel_kobj);
	};
	EXPECT_DEATH(left_behind(), "left behind at shutdown(.|\n)*/sys/kernel/left");
}

} // namespace
