// SPDX-License-Identifier: GPL-2.0-only
// Memcheck commands: prepare, switch on and switch off the slab and vmalloc trackers. Locks: see
// memcheck.h.
#include "memcheck.h"

#include <kernel/err.h>
#include <kernel/string.h>
#include <kernel/uaccess.h>

#include "log.h"
#include "mem_adapter.h"
#include "slub_track.h"
#include "subsystems.h"
#include "vmalloc_track.h"

constinit struct mutex memcheck_lock = {};
constinit char top_slub_name[slub_name_size] = {};
// 1 once the trackers have been started; stopping them does not clear it.
constinit unsigned int memtrack_init_state = 0;

namespace
{

constinit struct lock_class_key memcheck_lock_key = {};
constinit bool memtrack_started GUARDED_BY(memcheck_lock) = false;

constexpr mem_trace_entry mem_trace[] = {
	{TRACE_TYPE_SLUB, nullptr, nullptr, &slub_page_stack},
	{TRACE_TYPE_VMALLOC, nullptr, nullptr, &vmalloc_page_stack},
};

// Finds the first entry of the type that has the member.
template <class Member>
const mem_trace_entry *find_trace(u32 type, Member mem_trace_entry::*member)
{
	for (const mem_trace_entry &entry : mem_trace) {
		if (entry.type == type && entry.*member)
			return &entry;
	}
	return nullptr;
}

const page_stack_ops *find_ops(u32 type)
{
	const mem_trace_entry *entry = find_trace(type, &mem_trace_entry::ops);

	return entry ? entry->ops : nullptr;
}

// Runs operation on the tracker that a command's memory type selects.
int trace_switch(u32 memtype, int (*operation)(u32 type, const char *name)) REQUIRES(memcheck_lock)
{
	switch (memtype) {
	case MEMTYPE_SLUB:
		return operation(TRACE_TYPE_SLUB, top_slub_name);
	case MEMTYPE_VMALLOC:
		return operation(TRACE_TYPE_VMALLOC, "");
	default:
		return -EINVAL;
	}
}

} // namespace

void memcheck_load(void)
{
	__mutex_init(&memcheck_lock, "memcheck_lock", &memcheck_lock_key);
}

int page_trace_on(u32 type, const char *name)
{
	const page_stack_ops *ops = find_ops(type);

	return ops ? ops->on(name) : -EINVAL;
}

int page_trace_off(u32 type, const char *name)
{
	const page_stack_ops *ops = find_ops(type);

	return ops ? ops->off(name) : -EINVAL;
}

int page_trace_open(u32 type, int kind)
{
	const page_stack_ops *ops = find_ops(type);

	return ops ? ops->open(kind) : -EINVAL;
}

int page_trace_close(u32 type)
{
	const page_stack_ops *ops = find_ops(type);

	return ops ? ops->close() : -EINVAL;
}

long page_trace_read(u32 type, void *records, unsigned long max_records, int kind)
{
	const page_stack_ops *ops = find_ops(type);

	return ops ? ops->read(records, max_records, kind) : 0;
}

unsigned long get_mem_stats(u32 type)
{
	const mem_trace_entry *entry = find_trace(type, &mem_trace_entry::get_stats);

	return entry ? entry->get_stats() : 0;
}

unsigned long get_mem_detail(u32 type, unsigned long a, unsigned long b)
{
	const mem_trace_entry *entry = find_trace(type, &mem_trace_entry::get_detail);

	return entry ? entry->get_detail(a, b) : 0;
}

void memcheck_save_top_slub(const char *name)
{
	const mutex_guard guard(memcheck_lock);

	memcpy(top_slub_name, name, slub_name_size);
	top_slub_name[slub_name_size - 1] = '\0';
}

int memcheck_do_kernel_command(struct memcheck_command *cmd)
{
	const mutex_guard guard(memcheck_lock);
	const u32 memtype = cmd->memtype;
	int ret;

	switch (cmd->cmd) {
	case MEMCHECK_CMD_PREPARE:
		if (memtype == MEMTYPE_SLUB) {
			get_max_slub();
			return 0;
		}
		if (memtype == MEMTYPE_VMALLOC)
			return 0;
		MEM_ERR("trace prepare failed, memtype=%d\n", static_cast<int>(memtype));
		return -EINVAL;
	case MEMCHECK_CMD_ON:
		ret = trace_switch(memtype, page_trace_on);
		if (ret)
			MEM_ERR("trace on failed, memtype=%d\n", static_cast<int>(memtype));
		return ret;
	case MEMCHECK_CMD_OFF:
		ret = trace_switch(memtype, page_trace_off);
		if (ret)
			MEM_ERR("trace off failed, memtype=%d\n", static_cast<int>(memtype));
		return ret;
	default:
		MEM_ERR("Unsupported cmd=%d\n", static_cast<int>(cmd->cmd));
		return -EINVAL;
	}
}

int memcheck_do_command(struct memcheck_command *cmd)
{
	if (!(cmd->memtype & memtype_mask)) {
		MEM_ERR("unsupported operation\n");
		return 0;
	}
	return memcheck_do_kernel_command(cmd);
}

int tarn_process_leak_detect(void *user_arg)
{
	memcheck_command cmd = {};

	if (helper_copy_from_user(&cmd, user_arg, sizeof(cmd))) {
		MEM_ERR("copy_from_user failed\n");
		return -EFAULT;
	}
	return memcheck_do_command(&cmd);
}

int tarn_memtrack_init(void)
{
	const mutex_guard guard(memcheck_lock);

	if (memtrack_started)
		return 0;
	const int ret = slub_track_init();

	if (ret) {
		MEM_ERR("slub_track_init fail\n");
		return ret;
	}
	vmalloc_track_init();
	memtrack_started = true;
	WRITE_ONCE(memtrack_init_state, 1u);
	return 0;
}

void tarn_memtrack_exit(void)
{
	const mutex_guard guard(memcheck_lock);

	vmalloc_track_exit();
	slub_track_exit();
	memtrack_started = false;
}
