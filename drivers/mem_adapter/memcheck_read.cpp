// SPDX-License-Identifier: GPL-2.0-only
// The readout: renders a tracker's records as text into a user's buffer.
//
// Locks: memcheck_lock (memcheck.h) is held while the text is rendered, and released before the
// records are logged and user memory is touched.
#include <kernel/err.h>
#include <kernel/stackdepot.h>
#include <kernel/string.h>
#include <kernel/uaccess.h>
#include <kernel/vmalloc.h>

#include "log.h"
#include "mem_adapter.h"
#include "memcheck.h"
#include "slub_track.h"

namespace
{

// Reading empties the tracker's tree, so all of it is taken, although only the heaviest few records
// are rendered.
constexpr unsigned long max_records = 8192;
constexpr long rendered_records = 25;

// Holds at most size - 1 characters and a NUL; cuts off what does not fit.
struct text_buffer {
	char *text;
	size_t size;
	size_t used;

	[[nodiscard]] bool full() const
	{
		return used >= size - 1;
	}

	template <class... Args>
	void append(const char *fmt, Args... args)
	{
		used += static_cast<size_t>(scnprintf(text + used, size - used, fmt, args...));
	}
};

// The records of both kinds.
class slub_lists
{
public:
	slub_lists() = default;
	~slub_lists()
	{
		for (slub_list &list : lists_)
			vfree(list.records);
	}
	slub_lists(const slub_lists &) = delete;
	slub_lists &operator=(const slub_lists &) = delete;

	// Returns false without memory.
	bool allocate()
	{
		for (slub_list &list : lists_) {
			list.records = static_cast<slub_stack_record *>(
				helper_vzalloc(max_records * sizeof(slub_stack_record)));
			if (!list.records)
				return false;
		}
		return true;
	}

	slub_list &operator[](int kind)
	{
		return lists_[kind];
	}

private:
	slub_list lists_[SLUB_KINDS] = {};
};

constexpr const char *kind_texts[SLUB_KINDS] = {"SLUB_ALLOC", "SLUB_FREE"};

void append_record(text_buffer &text, const slub_stack_record &record)
{
	unsigned long *frames = nullptr;
	const unsigned int count = slub_handle_frames(record.handle, &frames);

	text.append("[0x%lx c:(%d/%lu) (p:%ld-%ld) %s]\n",
		    static_cast<unsigned long>(record.handle), atomic_read(&record.count),
		    static_cast<unsigned long>(record.total), static_cast<long>(record.pid_min),
		    static_cast<long>(record.pid_max), record.comm);
	for (unsigned int i = 0; i < count && !text.full(); i++)
		text.append("  %pS\n", reinterpret_cast<void *>(frames[i]));
}

// The log lines of the two functions below carry the name of the whole step.
constexpr const char *slub_step = "memcheck_get_slub_stack";

// Takes a kind's records from the tracker. Returns how many of them to render, or a negative error
// if the tracker refuses.
long take_records(slub_list &list, int kind) REQUIRES(memcheck_lock)
{
	if (page_trace_open(TRACE_TYPE_SLUB, kind)) {
		MEM_LOG(KERN_ERR, slub_step, "open slub stack failed\n");
		return -EINVAL;
	}
	const long num = page_trace_read(TRACE_TYPE_SLUB, list.records, max_records, kind);

	list.num = num;
	list.taken = max_slub_cache != nullptr;
	list.target = slub_describe_target();
	if (num == 0) {
		MEM_LOG(KERN_INFO, slub_step, "empty %s stack record\n", kind_texts[kind]);
		page_trace_close(TRACE_TYPE_SLUB);
		return 0;
	}
	if (page_trace_close(TRACE_TYPE_SLUB)) {
		MEM_LOG(KERN_ERR, slub_step, "close slub track failed\n");
		return -EINVAL;
	}
	return num < rendered_records ? num : rendered_records;
}

// A text that the header alone fills up ends without a message.
void append_records(text_buffer &text, const slub_stack_record *records, long num, int kind)
	REQUIRES(memcheck_lock)
{
	text.append("@@@@@%s %s@@@@@\n", static_cast<const char *>(top_slub_name),
		    kind_texts[kind]);
	if (text.full())
		return;
	for (long i = 0; i < num && !text.full(); i++)
		append_record(text, records[i]);
	if (text.full())
		MEM_LOG(KERN_ERR, slub_step,
			"memcheck_stack_to_str fail ret_num:%lu num:%lu used:%lu total:%lu\n",
			static_cast<unsigned long>(num), max_records, text.used, text.size);
}

// Whatever ends the rendering early, the text so far is the result.
void memcheck_get_slub_stack(text_buffer &text, slub_lists &lists) REQUIRES(memcheck_lock)
{
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++) {
		const long num = take_records(lists[kind], kind);

		if (num == 0)
			continue;
		if (num < 0)
			return;
		append_records(text, lists[kind].records, num, kind);
		if (text.full())
			return;
	}
}

// A console may take seconds for thousands of records, and commands wait for memcheck_lock.
int memcheck_render_slub(text_buffer &text) EXCLUDES(memcheck_lock)
{
	slub_lists lists;

	if (!lists.allocate())
		return -ENOMEM;
	{
		const mutex_guard guard(memcheck_lock);

		memcheck_get_slub_stack(text, lists);
	}
	for (int kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++)
		slub_log_list(lists[kind], kind);
	return 0;
}

void memcheck_read_vmalloc() EXCLUDES(memcheck_lock)
{
	const mutex_guard guard(memcheck_lock);

	page_trace_open(TRACE_TYPE_VMALLOC, SLUB_ALLOC);
	page_trace_read(TRACE_TYPE_VMALLOC, nullptr, max_records, SLUB_ALLOC);
	page_trace_close(TRACE_TYPE_VMALLOC);
}

int memcheck_render(u32 type, text_buffer &text) EXCLUDES(memcheck_lock)
{
	switch (type) {
	case MEMTYPE_SLUB:
		return memcheck_render_slub(text);
	case MEMTYPE_VMALLOC:
		memcheck_read_vmalloc();
		return 0;
	default:
		return 0;
	}
}

int memcheck_kernel_stack_read(void *user_arg, struct memcheck_info *info, const text_buffer &text)
{
	info->size = text.used;
	if (helper_copy_to_user(user_arg, info, sizeof(*info))) {
		MEM_ERR("copy to user failed\n");
		return -EFAULT;
	}
	if (text.used && helper_copy_to_user(static_cast<char *>(user_arg) + sizeof(*info),
					     text.text, text.used)) {
		MEM_ERR("payload copy to user failed\n");
		return -EFAULT;
	}
	return 0;
}

} // namespace

int memcheck_stack_read(void *user_arg, struct memcheck_info *info)
{
	text_buffer text = {static_cast<char *>(helper_vzalloc(info->size + 1)),
			    static_cast<size_t>(info->size), 0};

	if (!text.text)
		return -ENOMEM;
	int ret = memcheck_render(info->type, text);

	if (!ret)
		ret = memcheck_kernel_stack_read(user_arg, info, text);
	vfree(text.text);
	return ret;
}

int tarn_process_leak_read(void *user_arg)
{
	memcheck_info info = {};

	if (helper_copy_from_user(&info, user_arg, sizeof(info))) {
		MEM_ERR("copy from_user failed\n");
		return -EFAULT;
	}
	if (info.size == 0 || info.size > MEMCHECK_MAX_SIZE) {
		MEM_ERR("wrong size %llu\n", static_cast<unsigned long long>(info.size));
		return -EINVAL;
	}
	if (!(info.type & memtype_mask)) {
		MEM_ERR("wrong type %d\n", static_cast<int>(info.type));
		return -EINVAL;
	}
	return memcheck_stack_read(user_arg, &info);
}
