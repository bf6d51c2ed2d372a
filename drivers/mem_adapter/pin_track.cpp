// SPDX-License-Identifier: GPL-2.0-only
// Reports who pins pages of CMA pageblocks, by probes on the kernel's pinning functions. No locks.
// The cheap checks come first, since every pin of the system passes through here.
#include "pin_track.h"

#include <array>

#include <kernel/jiffies.h>
#include <kernel/sched.h>
#include <kernel/string.h>

#include "log.h"
#include "subsystems.h"

namespace
{

// At most one line in this many jiffies, counting all probes.
constexpr long report_interval = 1250;

constinit kprobe folio_add_pin_kp = {};
constinit kprobe try_grab_page_kp = {};
constinit kprobe try_grab_folio_kp = {};

// Jiffies at the last line. Tolerated race: no lock, so two CPUs may each log a line at the same
// time.
constinit unsigned long last_print_time = 0;

// Tasks that pin so often that they would drown out the others.
constexpr const char *excluded[] = {"fio", "crash_dump64", "Signal Catcher", "RenderThread"};

KPROBE_TEXT bool is_excluded(const char *comm)
{
	for (const char *name : excluded) {
		if (strcmp(comm, name) == 0)
			return true;
	}
	return false;
}

KPROBE_TEXT void show_pinner(const struct page *page, unsigned int flags, const char *fname)
{
	if (!(flags & FOLL_PIN))
		return;

	const char *comm = helper_task_comm(helper_current());

	if (is_excluded(comm))
		return;
	if (helper_page_migratetype(page) != KERNEL_MIGRATE_CMA)
		return;

	const unsigned long now = READ_ONCE(jiffies);

	// A signed difference, which is right even when jiffies wrap.
	if (static_cast<long>(now - READ_ONCE(last_print_time)) <= report_interval)
		return;

	const unsigned long pfn = helper_page_to_pfn(page);

	MEM_INFO("%s %s [0x%lx-0x%lx]", comm, fname, pfn, pfn + helper_page_folio_pages(page) - 1);
	WRITE_ONCE(last_print_time, now);
}

KPROBE_TEXT const struct page *page_argument(const struct pt_regs *regs)
{
	return reinterpret_cast<const struct page *>(helper_regs_argument(regs, 0));
}

struct pin_probe {
	struct kprobe *kp;
	const char *symbol;
	kprobe_entry_handler *handler;
	const char *failed;
	const char *planted;
};

#define PIN_PROBE(function)                                                                        \
	{                                                                                          \
		&function##_kp, #function, function##_handler_pre,                                 \
			KERN_ERR #function "_kp register_kprobe failed, returned %d",              \
			KERN_INFO "[MEM_ADAPTER] %s:%d: " #function "_kp Planted kprobe at 0x%pK"  \
	}

constexpr std::array<pin_probe, 3> probes = {{
	PIN_PROBE(folio_add_pin),
	PIN_PROBE(try_grab_page),
	PIN_PROBE(try_grab_folio),
}};

} // namespace

KPROBE_TEXT int folio_add_pin_handler_pre(struct kprobe *, struct pt_regs *regs)
{
	show_pinner(page_argument(regs), FOLL_PIN, "folio_add_pin");
	return 0;
}

KPROBE_TEXT int try_grab_page_handler_pre(struct kprobe *, struct pt_regs *regs)
{
	show_pinner(page_argument(regs), helper_regs_argument(regs, 1), "try_grab_page");
	return 0;
}

KPROBE_TEXT int try_grab_folio_handler_pre(struct kprobe *, struct pt_regs *regs)
{
	show_pinner(page_argument(regs), helper_regs_argument(regs, 2), "try_grab_folio");
	return 0;
}

// Stops at the first function that cannot be probed; earlier probes stay until exit.
int pin_track_init(void)
{
	for (const pin_probe &probe : probes) {
		helper_kprobe_init(probe.kp, probe.symbol, probe.handler);
		const int ret = register_kprobe(probe.kp);

		if (ret < 0) {
			_printk(probe.failed, ret);
			return ret;
		}
		_printk(probe.planted, __func__, __LINE__, helper_kprobe_addr(probe.kp));
	}
	return 0;
}

void pin_track_exit(void)
{
	for (auto probe = probes.rbegin(); probe != probes.rend(); ++probe)
		unregister_kprobe(probe->kp);
}
