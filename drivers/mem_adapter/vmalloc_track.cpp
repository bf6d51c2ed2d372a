// SPDX-License-Identifier: GPL-2.0-only
// vmalloc tracking. The stack of an area's creator is saved in the area itself and shown in the
// kernel's own listing. No locks: the probes read one flag and the kernel's counters.
#include "vmalloc_track.h"

#include <kernel/irq_work.h>
#include <kernel/ratelimit.h>
#include <kernel/stackdepot.h>
#include <kernel/stacktrace.h>
#include <kernel/tracepoint.h>
#include <uapi/tarn_lmkd.h>

#include "depot.h"
#include "leak_notify.h"
#include "mem_adapter.h"
#include "mem_event.h"
#include "memcheck.h"
#include "subsystems.h"
#include "vendor_hook.h"

// Stacks are saved while nonzero. Tolerated race: a plain word without a lock, so a probe on
// another CPU may see a switch one call late.
constinit int vmalloc_track_flag = 0;

constinit const page_stack_ops vmalloc_page_stack = {
	tarn_vmalloc_track_on,	  tarn_vmalloc_track_off,  tarn_vmalloc_stack_open,
	tarn_vmalloc_stack_close, tarn_vmalloc_stack_read,
};

namespace
{

// Marks an area with a saved stack, in the upper half of its caller field. No code address looks
// like this.
constexpr u32 VMALLOC_STACK_TAG = 0x12345678;
constexpr unsigned int stack_depth = 7;
// The probe, the tracepoint's own function, and the kernel's area set-up.
constexpr unsigned int own_frames = 3;

constinit ratelimit_state vmalloc_detect_notify = {};
constinit struct irq_work vmalloc_notify_work = {};
constinit ratelimit_state vmalloc_purge_notify = {};

constinit notifier_block memtrack_vmap_purge_nb = {memtrack_vmap_purge_notify, nullptr, 0};
constinit bool purge_registered = false;
constinit vendor_hook<android_vh_save_vmalloc_stack_probe> save_hook;
constinit vendor_hook<android_vh_show_stack_hash_probe> show_hook;

void vmalloc_maybe_need_notify()
{
	if (!tarn_should_detect_vmalloc_leak())
		return;
	if (!___ratelimit(&vmalloc_detect_notify, __func__))
		return;
	irq_work_queue(&vmalloc_notify_work);
	mem_event_count(MM_EVENT_VMALLOC_LEAK);
}

} // namespace

void vmalloc_notify_leak(struct irq_work *)
{
	lmkd_notify(LMKD_EVENT_VMALLOC_LEAK);
}

void vmalloc_track_load(void)
{
	helper_init_irq_work(&vmalloc_notify_work, vmalloc_notify_leak);
	helper_ratelimit_state_init(&vmalloc_detect_notify, leak_notify_interval,
				    leak_notify_burst);
	helper_ratelimit_state_init(&vmalloc_purge_notify, leak_notify_interval, leak_notify_burst);
}

int vmalloc_track_init(void)
{
	save_hook.attach(android_vh_save_vmalloc_stack(), vh_save_vmalloc_stack);
	show_hook.attach(android_vh_show_stack_hash(), vh_show_stack_hash);
	purge_registered = register_vmap_purge_notifier(&memtrack_vmap_purge_nb) == 0;
	return 0;
}

void vmalloc_track_exit(void)
{
	if (purge_registered)
		unregister_vmap_purge_notifier(&memtrack_vmap_purge_nb);
	purge_registered = false;
	show_hook.detach();
	save_hook.detach();
	// The last probes may still queue a notification.
	helper_tracepoint_synchronize_unregister();
	irq_work_sync(&vmalloc_notify_work);
}

void vh_save_vmalloc_stack(void *, unsigned long, struct vm_struct *area)
{
	vmalloc_maybe_need_notify();
	if (!READ_ONCE(vmalloc_track_flag))
		return;

	unsigned long entries[stack_depth];
	const unsigned int count = stack_trace_save(entries, stack_depth, own_frames);
	const depot_stack_handle_t handle = depot_save(entries, count, __GFP_KSWAPD_RECLAIM);

	if (handle)
		helper_vm_struct_set_caller(area, u64{VMALLOC_STACK_TAG} << 32 | handle);
}

void vh_show_stack_hash(void *, struct seq_file *m, struct vm_struct *area)
{
	const unsigned long caller = helper_vm_struct_caller(area);

	if (caller >> 32 != VMALLOC_STACK_TAG)
		return;

	unsigned long *entries = nullptr;
	const unsigned int count =
		stack_depot_fetch(static_cast<depot_stack_handle_t>(caller), &entries);

	seq_putc(m, '\n');
	seq_printf(m, "vmalloc_stack %pS %7ld %d %u\n", reinterpret_cast<void *>(caller),
		   static_cast<long>(helper_vm_struct_size(area)),
		   static_cast<int>(helper_vm_struct_nr_pages(area)), count);
	for (unsigned int i = 0; i < count; i++)
		seq_printf(m, "    %pS\n", reinterpret_cast<void *>(entries[i]));
}

int memtrack_vmap_purge_notify(struct notifier_block *, unsigned long, void *)
{
	if (___ratelimit(&vmalloc_purge_notify, __func__))
		lmkd_notify(LMKD_EVENT_VMALLOC_LEAK);
	return 0;
}

int tarn_vmalloc_track_on(const char *)
{
	WRITE_ONCE(vmalloc_track_flag, 1);
	return 0;
}

int tarn_vmalloc_track_off(const char *)
{
	WRITE_ONCE(vmalloc_track_flag, 0);
	return 0;
}

int tarn_vmalloc_stack_open(int)
{
	return 0;
}

int tarn_vmalloc_stack_close(void)
{
	return 0;
}

long tarn_vmalloc_stack_read(void *, unsigned long, int)
{
	return 0;
}
