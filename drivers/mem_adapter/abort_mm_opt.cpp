// SPDX-License-Identifier: GPL-2.0-only
// Two switches that make the kernel abort madvise cold/pageout passes and compaction early. No
// locks: the probes read one flag each.
#include "abort_mm_opt.h"

#include <kernel/compiler.h>

#include "log.h"
#include "subsystems.h"
#include "vendor_hook.h"

// Module parameters. Tolerated race: plain words without a lock, so a change takes effect when a
// running pass asks next.
constinit unsigned int abort_madvise_opt = 0;
constinit unsigned int abort_compact_opt = 0;

namespace
{

constinit vendor_hook<android_vh_madvise_cold_or_pageout_abort_probe> madvise_hook;
constinit vendor_hook<android_vh_compact_finished_probe> compact_hook;

int register_abort_mm_opt_vendor_hooks()
{
	int ret = madvise_hook.attach(android_vh_madvise_cold_or_pageout_abort(),
				      should_abort_madvise);
	if (ret < 0) {
		MEM_ERR("register_trace_android_vh_madvise_cold_or_pageout_abort failed! ret=%d",
			ret);
		return ret;
	}

	ret = compact_hook.attach(android_vh_compact_finished(), should_abort_compact);
	if (ret < 0) {
		madvise_hook.detach();
		MEM_ERR("register_trace_android_vh_compact_finished failed! ret=%d", ret);
		return ret;
	}
	return 0;
}

} // namespace

void should_abort_madvise(void *, struct vm_area_struct *, bool *abort)
{
	if (!READ_ONCE(abort_madvise_opt))
		return;
	*abort = true;
	MEM_INFO("set abort_madvise_opt success!");
}

void should_abort_compact(void *, bool *abort)
{
	if (!READ_ONCE(abort_compact_opt))
		return;
	*abort = true;
	MEM_INFO("set abort_compact_opt success!");
}

int abort_mm_opt_init(void)
{
	const int ret = register_abort_mm_opt_vendor_hooks();

	if (ret < 0)
		return ret;
	MEM_INFO("init succeed!");
	return 0;
}

void abort_mm_opt_exit(void)
{
	compact_hook.detach();
	madvise_hook.detach();
	MEM_INFO("exit succeed!");
}
