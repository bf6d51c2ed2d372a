// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/sysfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/log.h>
#include <hosted/engine/opaque.h>
#include <hosted/file_tree.h>

namespace hosted
{
namespace
{

constexpr std::size_t page_size = 1u << KERNEL_PAGE_SHIFT;

// The real contents of the interface's sized storage; zeroed storage has no name.
struct attribute {
	const char *name;
	umode_t mode;
	long (*show)(kobject *, kobj_attribute *, char *);
	long (*store)(kobject *, kobj_attribute *, const char *, size_t);
};
struct group {
	size_t count;
	std::array<kobj_attribute *, KERNEL_GROUP_ATTRIBUTES> attributes;
};

attribute attribute_of(const kobj_attribute *storage)
{
	const auto attr = load_opaque<attribute>(storage);
	if (!attr.name)
		judge_stop("sysfs", "use of an attribute that was never initialised");
	return attr;
}

sysfs_file file_of(kobject *dir, kobj_attribute *storage)
{
	return {
		attribute_of(storage).mode,
		[=](char *page) {
			const attribute attr = attribute_of(storage);
			return attr.show ? attr.show(dir, storage, page) : -EIO;
		},
		[=](const char *text, size_t count) {
			const attribute attr = attribute_of(storage);
			return attr.store ? attr.store(dir, storage, text, count) : -EIO;
		},
	};
}

} // namespace

int read_file(std::string_view path, std::string &text)
{
	constexpr umode_t readable = 0444;

	might_sleep("sysfs read");
	const std::unique_ptr<char, decltype(&std::free)> page(
		static_cast<char *>(std::aligned_alloc(page_size, page_size)), &std::free);
	std::memset(page.get(), 0, page_size);
	const long length = file_tree::get().run(
		path, readable, [&](const sysfs_file &file) { return file.show(page.get()); });
	if (length < 0)
		return static_cast<int>(length);
	if (static_cast<std::size_t>(length) >= page_size)
		judge_stop("sysfs", "a show handler returned more than fits on the page");
	text.assign(page.get(), static_cast<std::size_t>(length));
	return 0;
}

long write_file(std::string_view path, std::string_view text)
{
	constexpr umode_t writable = 0222;

	might_sleep("sysfs write");
	const std::size_t count = std::min(text.size(), page_size);
	const auto copy = std::make_unique<char[]>(count + 1);
	std::ranges::copy(text.substr(0, count), copy.get());
	return file_tree::get().run(path, writable, [&](const sysfs_file &file) {
		return count == 0 ? 0 : file.store(copy.get(), count);
	});
}

kobject *make_dir(std::string_view path)
{
	file_tree &sysfs = file_tree::get();
	next_component(path);
	kobject *dir = sysfs.root();
	bool made = false;
	while (!path.empty()) {
		const std::string_view name = next_component(path);
		kobject *child = sysfs.child(dir, name);
		kobject *next = child ? child : sysfs.add_dir(name, dir, false);
		// From here on only the child keeps a directory that was created on the way.
		if (made)
			sysfs.put(dir);
		made = !child;
		dir = next;
	}
	return dir;
}

void remove_dir(kobject *dir)
{
	file_tree::get().put(dir);
}

void add_file(kobject *dir, std::string_view name, sysfs_file file)
{
	file_tree::get().add_files(dir, {{std::string(name), std::move(file)}});
}

} // namespace hosted

struct kobject *kernel_kobj = hosted::make_dir("/sys/kernel");

struct kobject *kobject_create_and_add(const char *name, struct kobject *parent)
{
	hosted::might_sleep("kobject_create_and_add");
	if (hosted::should_fail("kobject_create_and_add"))
		return nullptr;
	hosted::file_tree &sysfs = hosted::file_tree::get();
	return sysfs.add_dir(name, parent ? parent : sysfs.root(), true);
}

void kobject_put(struct kobject *kobj)
{
	if (!kobj)
		return;
	hosted::might_sleep("kobject_put");
	hosted::file_tree::get().put(kobj);
}

void kobject_del(struct kobject *kobj)
{
	if (!kobj)
		return;
	hosted::might_sleep("kobject_del");
	hosted::file_tree::get().del(kobj);
}

int sysfs_create_group(struct kobject *kobj, const struct attribute_group *grp)
{
	hosted::might_sleep("sysfs_create_group");
	if (hosted::should_fail("sysfs_create_group"))
		return -ENOMEM;
	const auto group = hosted::load_opaque<hosted::group>(grp);
	std::vector<std::pair<std::string, hosted::sysfs_file>> files;
	for (size_t i = 0; i < group.count; ++i) {
		kobj_attribute *attr = group.attributes[i];
		files.emplace_back(hosted::attribute_of(attr).name, hosted::file_of(kobj, attr));
	}
	return hosted::file_tree::get().add_files(kobj, files);
}

int sysfs_emit(char *buf, const char *fmt, ...)
{
	if (!buf || reinterpret_cast<std::uintptr_t>(buf) % hosted::page_size != 0)
		hosted::judge_stop("sysfs",
				   "sysfs_emit to something other than the handler's page");
	va_list args;
	va_start(args, fmt);
	const std::string text = hosted::format(fmt, args);
	va_end(args);
	const std::size_t length = std::min(text.size(), hosted::page_size - 1);
	std::memcpy(buf, text.data(), length);
	buf[length] = '\0';
	return static_cast<int>(length);
}

void helper_kobj_attribute_init(struct kobj_attribute *attr, const char *name, umode_t mode,
				long (*show)(struct kobject *kobj, struct kobj_attribute *attr,
					     char *buf),
				long (*store)(struct kobject *kobj, struct kobj_attribute *attr,
					      const char *buf, size_t count))
{
	hosted::store_opaque(attr, hosted::attribute{name, mode, show, store});
}

void helper_attribute_group_init(struct attribute_group *grp, struct kobj_attribute *const *attrs,
				 size_t count)
{
	hosted::group real{count, {}};
	if (count > real.attributes.size())
		hosted::judge_stop("sysfs", "a group has too many attributes");
	std::copy_n(attrs, count, real.attributes.begin());
	hosted::store_opaque(grp, real);
}
