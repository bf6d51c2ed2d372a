// SPDX-License-Identifier: GPL-2.0-only
// CMA areas, kprobes, debugfs and kmalloc.
#include <atomic>
#include <stdexcept>

#include <hosted/cma.h>
#include <hosted/core_tracepoints.h>
#include <hosted/kprobes.h>
#include <hosted/pins.h>
#include <hosted/sysfs.h>
#include <kernel/bitmap.h>
#include <kernel/debugfs.h>
#include <kernel/err.h>
#include <kernel/slab.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

class cma_areas : public kernel_test
{
protected:
	// The tracepoints' last event, as "alloc|release pfn count errorno".
	static inline std::string event;

	static void on_alloc(void *, const char *, unsigned long pfn, const page *,
			     unsigned long count, unsigned, int error)
	{
		event = "alloc " + std::to_string(static_cast<long>(pfn)) + ' ' +
			std::to_string(count) + ' ' + std::to_string(error);
	}
	static void on_release(void *, const char *, unsigned long pfn, const page *,
			       unsigned long count)
	{
		event = "release " + std::to_string(pfn) + ' ' + std::to_string(count);
	}
};

TEST_F(cma_areas, allocate_the_first_aligned_run_whose_pages_can_be_had)
{
	tracepoint *finish = helper_find_tracepoint("cma_alloc_finish");
	tracepoint *release = helper_find_tracepoint("cma_release");
	EXPECT_FALSE(helper_find_tracepoint("cma_alloc"));
	tracepoint_probe_register(finish, reinterpret_cast<void *>(on_alloc), nullptr);
	tracepoint_probe_register(release, reinterpret_cast<void *>(on_release), nullptr);
	EXPECT_THROW(add_cma_area("chunks", 0, 512, 10), std::invalid_argument);
	EXPECT_THROW(add_cma_area("blocks", 0, 100), std::invalid_argument);
	cma &area = add_cma_area("area", 512, 512, 2);
	const auto bits = [&] {
		return __bitmap_weight(helper_cma_bitmap(&area), 128);
	};
	const auto alloc = [&](unsigned long count, unsigned align = 0) {
		event.clear();
		cma_alloc(area, count, align);
		return event;
	};
	EXPECT_EQ(alloc(1), "alloc 512 1 0");
	EXPECT_EQ(alloc(5), "alloc 516 5 0");
	EXPECT_EQ(bits(), 3U);
	EXPECT_EQ(alloc(4, 5), "alloc 544 4 0") << "aligned";
	EXPECT_EQ(alloc(20), "alloc 524 20 0") << "between two";
	EXPECT_EQ(alloc(500), "alloc -1 500 -12");
	EXPECT_EQ(alloc(513), "");
	EXPECT_EQ(alloc(0), "");
	EXPECT_EQ(helper_page_refcount(&page_at(520)), 1);

	page_at(512 + 100).buddy = true;
	try_grab_page(page_at(512 + 60), FOLL_PIN);
	EXPECT_EQ(alloc(300), "alloc 576 300 0") << "behind the pinned one";
	EXPECT_FALSE(helper_page_is_buddy(&page_at(612)));
	EXPECT_EQ(alloc(20), "alloc 548 20 0");
	EXPECT_EQ(alloc(148), "alloc 876 148 0");
	EXPECT_EQ(alloc(8), "alloc 568 8 -16") << "there is nothing but the pinned one";
	const unsigned taken = bits();
	EXPECT_TRUE(cma_release(area, &page_at(576), 300));
	EXPECT_EQ(event, "release 576 300");
	EXPECT_EQ(bits(), taken - 75);
	add_frames(1024, 512);
	EXPECT_FALSE(cma_release(area, &page_at(1024), 1));
	EXPECT_DEATH(cma_release(area, &page_at(1020), 5), "end outside of area");
	EXPECT_DEATH(page_at(1536), "there is no frame 0x600");
	{
		const context_scope interrupt(context_kind::hardirq);
		EXPECT_DEATH(cma_alloc(area, 1), "atomic context: cma_alloc");
		EXPECT_TRUE(cma_release(area, &page_at(512), 1));
	}
	tracepoint_probe_unregister(finish, reinterpret_cast<void *>(on_alloc), nullptr);
	tracepoint_probe_unregister(release, reinterpret_cast<void *>(on_release), nullptr);
}

class kprobes : public kernel_test
{
protected:
	static int on_entry(kprobe *, pt_regs *regs)
	{
		return body(regs);
	}
	int plant(const char *symbol)
	{
		helper_kprobe_init(&kp, symbol, on_entry);
		return register_kprobe(&kp);
	}
	static int noticed(kprobe *, pt_regs *)
	{
		return 0;
	}

	static inline std::function<int(pt_regs *)> body;
	kprobe kp{};
	page &a = make_pages(1).front();
};
using kprobes_death = kprobes;

TEST_F(kprobes_death, handlers_see_the_arguments_and_are_judged)
{
	body = [&](pt_regs *regs) {
		EXPECT_EQ(helper_regs_argument(regs, 0), reinterpret_cast<unsigned long>(&a));
		EXPECT_EQ(static_cast<unsigned>(helper_regs_argument(regs, 1)), FOLL_PIN);
		EXPECT_NE(helper_regs_argument(regs, 1), FOLL_PIN) << "of 32 bits";
		EXPECT_EQ(self().preempt_count, 1);
		EXPECT_EQ(helper_page_refcount(&a), 1) << "before the function";
		return 0;
	};
	EXPECT_EQ(plant("folio_put"), -ENOENT);
	EXPECT_EQ(plant("try_grab_page"), 0);
	EXPECT_EQ(symbol_text(reinterpret_cast<unsigned long>(helper_kprobe_addr(&kp))),
		  "try_grab_page+0x0/0x100");
	try_grab_page(a, FOLL_PIN);
	EXPECT_EQ(helper_page_refcount(&a), 1025);
	EXPECT_DEATH(register_kprobe(&kp), "registered twice at try_grab_page");
	EXPECT_DEATH(plant("folio_add_pin"), "initialised while it is registered");
	EXPECT_THAT(leftovers(), testing::ElementsAre("kprobe at try_grab_page"));

	body = [](pt_regs *) {
		return 1;
	};
	EXPECT_DEATH(try_grab_page(a, 0), "keeps it from running");
	body = [](pt_regs *) {
		synchronize_rcu();
		return 0;
	};
	EXPECT_DEATH(try_grab_page(a, 0), "atomic context: synchronize_rcu");
	unregister_kprobe(&kp);
	unregister_kprobe(&kp);
	try_grab_page(a, 0);
	kprobe fresh{};
	EXPECT_DEATH(register_kprobe(&fresh), "never initialised");
	unregister_kprobe(&fresh);
}

TEST_F(kprobes, no_handler_runs_after_the_unregistration)
{
	std::atomic<bool> inside = false;
	std::atomic<bool> left = false;
	body = [&](pt_regs *) {
		inside = true;
		for (int i = 0; i < 1000; i++)
			std::this_thread::yield();
		left = true;
		return 0;
	};
	plant("folio_add_pin");
	kprobe other{};
	helper_kprobe_init(&other, "folio_add_pin", noticed);
	EXPECT_EQ(register_kprobe(&other), 0);
	std::jthread pinner([&] { folio_add_pin(a); });
	while (!inside)
		std::this_thread::yield();
	unregister_kprobe(&kp);
	EXPECT_TRUE(left);
	unregister_kprobe(&other);
}

class debugfs : public kernel_test
{
protected:
	debugfs()
	{
		helper_attribute_fops_init(&fops_, [](inode *inode, file *file) {
			return simple_attr_open(
				inode, file,
				[](void *data, u64 *value) {
					return on_get(static_cast<const char *>(data), value);
				},
				nullptr, "%llu\n");
		});
		dir_ = debugfs_create_dir("dir", nullptr);
		file_ = debugfs_create_file("file", 0666, dir_, const_cast<char *>("data"), &fops_);
	}
	~debugfs() override
	{
		debugfs_remove(dir_);
	}
	std::string read(const char *path = "/sys/kernel/debug/dir/file")
	{
		std::string text;
		const int error = read_file(path, text);
		return error ? std::to_string(error) : text;
	}

	static inline std::function<int(const char *data, u64 *value)> on_get;
	file_operations fops_{};
	dentry *dir_ = nullptr;
	dentry *file_ = nullptr;
};
using debugfs_death = debugfs;

TEST_F(debugfs_death, an_attribute_is_got_once_a_reading)
{
	int gets = 0;
	on_get = [&](const char *data, u64 *value) {
		EXPECT_STREQ(data, "data");
		*value = ~0ULL;
		return ++gets == 2 ? -ENOMEM : 0;
	};
	EXPECT_EQ(read(), "18446744073709551615\n");
	EXPECT_EQ(gets, 1);
	EXPECT_EQ(read(), "-12");
	EXPECT_EQ(write_file("/sys/kernel/debug/dir/file", "1"), -EACCES);
	on_get = [&](const char *, u64 *) {
		return debugfs_remove(dir_), 0;
	};
	EXPECT_DEATH(read(), "removed by a handler of its own");
}

TEST_F(debugfs_death, a_removal_takes_all_below_and_what_failed_does_no_harm)
{
	dentry *taken = debugfs_create_dir("dir", nullptr);
	EXPECT_EQ(taken, ERR_PTR(-EEXIST));
	EXPECT_EQ(debugfs_create_dir("below", taken), taken);
	EXPECT_EQ(debugfs_create_file("file", 0444, taken, nullptr, &fops_), taken);
	EXPECT_EQ(debugfs_create_file("file", 0444, dir_, nullptr, &fops_), ERR_PTR(-EEXIST));
	debugfs_remove(taken);
	debugfs_remove(nullptr);

	on_get = [](const char *, u64 *value) {
		*value = 7;
		return 0;
	};
	dentry *below = debugfs_create_dir("below", dir_);
	debugfs_create_file("file", 0444, below, nullptr, &fops_);
	EXPECT_EQ(read("/sys/kernel/debug/dir/below/file"), "7\n");
	EXPECT_THAT(leftovers(),
		    testing::UnorderedElementsAre("sysfs directory /sys/kernel/debug/dir",
						  "sysfs file /sys/kernel/debug/dir/file",
						  "sysfs directory /sys/kernel/debug/dir/below",
						  "sysfs file /sys/kernel/debug/dir/below/file"));
	debugfs_remove(file_);
	EXPECT_EQ(read(), std::to_string(-ENOENT));
	debugfs_remove(std::exchange(dir_, nullptr));
	EXPECT_EQ(read("/sys/kernel/debug/dir/below/file"), std::to_string(-ENOENT));
	EXPECT_DEATH(debugfs_remove(below), "an entry that does not exist");
	EXPECT_THAT(leftovers(), testing::IsEmpty());
}

using kmalloc_death = kernel_test;

TEST_F(kmalloc_death, objects_are_zeroed_and_must_come_back)
{
	for (int i = 0; i < 2; i++) {
		auto *object = static_cast<unsigned char *>(helper_kzalloc(129, GFP_ATOMIC));
		EXPECT_EQ(std::count(object, object + 129, 0), 129);
		object[128] = 1;
		EXPECT_THAT(leftovers(), testing::ElementsAre("1 kmalloc object(s)"));
		// NOLINTBEGIN(clang-analyzer-unix.Malloc): the misuse is what is tested
		EXPECT_DEATH(kfree(object + 8), "not the start of an object");
		kfree(object);
		EXPECT_DEATH(kfree(object), "double free into kmalloc-256");
		// NOLINTEND(clang-analyzer-unix.Malloc)
	}
	EXPECT_THAT(leftovers(), testing::IsEmpty());
}

} // namespace
