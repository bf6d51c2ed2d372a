// SPDX-License-Identifier: GPL-2.0-only
// Memory event counters, their periodic report through the event client, and its sysfs controls.
//
// Locks: control_lock, a mutex, makes a change of enabled or level and of the timer one step. Sysfs
// calls the handlers that take it with only its own references held; inside it they may wait for a
// running timer callback. Probes, timer callback and report take no lock.
#include "mem_event.h"

#include <kernel/err.h>
#include <kernel/gfp.h>
#include <kernel/jiffies.h>
#include <kernel/kstrtox.h>
#include <kernel/mutex.h>
#include <kernel/printk.h>
#include <kernel/sysfs.h>
#include <kernel/timer.h>
#include <kernel/workqueue.h>
#include <platform/ember.h>

#include "mem_adapter.h"
#include "subsystems.h"
#include "vendor_hook.h"

KERNEL_C_BEGIN
void record_kswapd_done(void *data, int node, unsigned int highest_zone, unsigned int alloc_order,
			unsigned int reclaim_order);
void record_slowpath(void *data, gfp_t gfp_mask, unsigned int order, unsigned long alloc_start);
void record_direct_reclaim(void *data, unsigned int order);
KERNEL_C_END

constinit atomic64_t mm_event_arr[MM_EVENTS] = {};

namespace
{

constexpr int report_event = 1000;

// Since the last report.
constinit atomic64_t record_kswapd_cnt = {};
constinit atomic64_t record_direct_reclaim_cnt = {};
constinit atomic64_t record_slowpath_cost_jiffies = {};

constinit struct mutex control_lock = {};
constinit struct lock_class_key control_lock_key = {};
constinit struct lock_class_key report_timer_key = {};
// Tolerated race: written under the lock, read by the timer callback and by sysfs without it, so a
// report may still come after the old period.
constinit bool config_enabled = false;
constinit int config_level = 0;

constinit struct timer_list report_timer = {};
constinit struct work_struct report_work = {};

constinit struct kobject *mm_event_kobj = nullptr;
constinit struct kobj_attribute enabled_attribute = {};
constinit struct kobj_attribute level_attribute = {};
constinit struct attribute_group mm_event_group = {};

constinit vendor_hook<android_vh_vmscan_kswapd_done_probe> kswapd_hook;
constinit vendor_hook<android_vh_alloc_pages_slowpath_probe> slowpath_hook;
constinit vendor_hook<android_vh_mm_direct_reclaim_enter_probe> direct_reclaim_hook;

// Jiffies between two reports.
unsigned long report_period(int level)
{
	switch (level) {
	case 1:
		return 900000;
	case 2:
		return 15000;
	default:
		return 21600000;
	}
}

// Context: softirq. The report may sleep, so a work item sends it.
void timer_callback(struct timer_list *)
{
	mod_timer(&report_timer, READ_ONCE(jiffies) + report_period(READ_ONCE(config_level)));
	helper_queue_work(system_wq, &report_work);
}

void add_int(cdev_tevent *event, const char *key, u64 value)
{
	cdev_tevent_add_int(event, key, static_cast<s64>(value));
}

// Adds a counter and clears it in one step, so that each event is in exactly one report.
void add_counter(cdev_tevent *event, const char *key, atomic64_t &counter)
{
	cdev_tevent_add_int(event, key, atomic64_xchg_relaxed(&counter, 0));
}

// Context: process, may sleep.
void do_report(struct work_struct *)
{
	cdev_tevent *event = cdev_tevent_alloc(report_event);

	if (!event) {
		_printk(KERN_ERR "lumen event is error");
		return;
	}
	cdev_tevent_add_str(event, "appId", "31000402203");
	cdev_tevent_add_str(event, "eventName", "memory_event");
	add_int(event, "free_page", tarn_get_free_page());
	add_int(event, "file_page", tarn_get_file_page());
	add_int(event, "anon_page", tarn_get_anon_page());
	add_int(event, "zram_page", tarn_get_zram_page());
	add_counter(event, "kswapd_cnt", record_kswapd_cnt);
	add_counter(event, "direct_reclaim_cnt", record_direct_reclaim_cnt);
	add_counter(event, "slowpath_cost_jiffies", record_slowpath_cost_jiffies);
	for (atomic64_t &slot : mm_event_arr)
		add_counter(event, "record_event", slot);
	cdev_tevent_write(event);
	cdev_tevent_destroy(event);
}

long enabled_show(struct kobject *, struct kobj_attribute *, char *buf)
{
	return sysfs_emit(buf, "%d\n", READ_ONCE(config_enabled));
}

long enabled_store(struct kobject *, struct kobj_attribute *, const char *buf, size_t count)
{
	int value = 0;
	const int ret = kstrtoint(buf, 10, &value);

	if (ret)
		return ret;
	const mutex_guard guard(control_lock);
	const bool enable = value != 0;

	if (enable == config_enabled)
		return static_cast<long>(count);
	WRITE_ONCE(config_enabled, enable);
	if (enable)
		mod_timer(&report_timer, READ_ONCE(jiffies));
	else
		timer_delete_sync(&report_timer);
	return static_cast<long>(count);
}

long level_show(struct kobject *, struct kobj_attribute *, char *buf)
{
	return sysfs_emit(buf, "%d\n", READ_ONCE(config_level));
}

long level_store(struct kobject *, struct kobj_attribute *, const char *buf, size_t count)
{
	int value = 0;
	const int ret = kstrtoint(buf, 10, &value);

	if (ret)
		return ret;
	const mutex_guard guard(control_lock);

	if (value == config_level)
		return static_cast<long>(count);
	WRITE_ONCE(config_level, value);
	if (config_enabled) {
		timer_delete_sync(&report_timer);
		mod_timer(&report_timer, READ_ONCE(jiffies));
	}
	return static_cast<long>(count);
}

// Called last of the set-up: the attributes may be written as soon as they exist.
int create_controls()
{
	static constinit struct kobj_attribute *const attributes[] = {&enabled_attribute,
								      &level_attribute};

	helper_kobj_attribute_init(&enabled_attribute, "enabled", 0644, enabled_show,
				   enabled_store);
	helper_kobj_attribute_init(&level_attribute, "level", 0644, level_show, level_store);
	helper_attribute_group_init(&mm_event_group, attributes, 2);

	struct kobject *kobj = kobject_create_and_add("mm_event", kernel_kobj);

	if (!kobj) {
		_printk(KERN_ERR "failed to create mm_event kobject");
		return -ENOMEM;
	}
	if (sysfs_create_group(kobj, &mm_event_group)) {
		_printk(KERN_ERR "failed to register mm_event group");
		kobject_put(kobj);
		return -ENOMEM;
	}
	mm_event_kobj = kobj;
	return 0;
}

void detach_hooks()
{
	kswapd_hook.detach();
	slowpath_hook.detach();
	direct_reclaim_hook.detach();
}

bool attach_hooks()
{
	return kswapd_hook.attach(android_vh_vmscan_kswapd_done(), record_kswapd_done) >= 0 &&
	       slowpath_hook.attach(android_vh_alloc_pages_slowpath(), record_slowpath) >= 0 &&
	       direct_reclaim_hook.attach(android_vh_mm_direct_reclaim_enter(),
					  record_direct_reclaim) >= 0;
}

} // namespace

// Probes on the reclaim paths. Context: any; never sleep.

void record_kswapd_done(void *, int, unsigned int, unsigned int, unsigned int)
{
	atomic64_add(1, &record_kswapd_cnt);
}

void record_slowpath(void *, gfp_t, unsigned int, unsigned long alloc_start)
{
	atomic64_add(static_cast<s64>(READ_ONCE(jiffies) - alloc_start),
		     &record_slowpath_cost_jiffies);
}

void record_direct_reclaim(void *, unsigned int)
{
	atomic64_add(1, &record_direct_reclaim_cnt);
}

void tarn_memory_event_report(unsigned int type)
{
	if (type < MM_EVENTS)
		mem_event_count(type);
}

int mm_event_init(void)
{
	__mutex_init(&control_lock, "mm_event control_lock", &control_lock_key);
	helper_init_work(&report_work, do_report);
	init_timer_key(&report_timer, timer_callback, 0, "report_timer", &report_timer_key);

	const int ret = create_controls();
	if (ret)
		return ret;
	if (!attach_hooks()) {
		_printk(KERN_ERR "register hook failed!");
		detach_hooks();
	}
	return 0;
}

// The directory goes first, and with it the handlers that could arm the timer again. Dropping the
// reference is not enough: the kernel may release the directory later.
void mm_event_exit(void)
{
	kobject_del(mm_event_kobj);
	kobject_put(mm_event_kobj);
	mm_event_kobj = nullptr;
	detach_hooks();
	timer_delete_sync(&report_timer);
	cancel_work_sync(&report_work);
}
