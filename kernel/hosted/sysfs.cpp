// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/sysfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include <hosted/fault.h>
#include <hosted/judge.h>
#include <hosted/leftovers.h>
#include <hosted/lockdep.h>
#include <hosted/log.h>

// A directory. Each child holds a reference to its parent.
struct kobject {
	std::string name;
	kobject *parent;
	bool of_module;
	bool linked = true; // in sight
	unsigned refs = 1;
	unsigned running = 0; // handlers of its files
	std::map<std::string, kobject *, std::less<>> children{};
	std::map<std::string, hosted::sysfs_file, std::less<>> files{};
};

namespace hosted
{
namespace
{

constexpr std::size_t page_size = 1u << KERNEL_PAGE_SHIFT;

// Stands for a running handler as a lock that the handler holds and that the removal of its
// directory takes.
unsigned active_class()
{
	static constinit char key;
	static const unsigned lock_class = hosted::lock_class("sysfs handler", &key);
	return lock_class;
}

// Cuts the first component off a path.
std::string_view next_component(std::string_view &path)
{
	path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
	const std::string_view component = path.substr(0, path.find('/'));
	path.remove_prefix(component.size());
	return component;
}

class tree
{
public:
	static tree &get()
	{
		static tree t;
		return t;
	}

	kobject *root()
	{
		return &root_;
	}

	// Null when the name is taken.
	kobject *add_dir(std::string_view name, kobject *parent, bool of_module)
	{
		const std::lock_guard guard(lock_);
		check_live(parent);
		if (parent->children.contains(name) || parent->files.contains(name))
			return nullptr;
		auto dir =
			std::unique_ptr<kobject>(new kobject{std::string(name), parent, of_module});
		parent->children.emplace(name, dir.get());
		++parent->refs;
		dirs_.insert(dir.get());
		return dir.release();
	}

	kobject *child(kobject *parent, std::string_view name)
	{
		const std::lock_guard guard(lock_);
		const auto found = parent->children.find(name);
		return found == parent->children.end() ? nullptr : found->second;
	}

	// Takes the directory out of sight and waits for its handlers; references to it stay.
	void del(kobject *dir)
	{
		check_no_handler_of(dir);
		std::unique_lock guard(lock_);
		check_live(dir);
		unlink(*dir, guard);
	}

	void put(kobject *dir)
	{
		check_no_handler_of(dir);
		std::unique_lock guard(lock_);
		for (;;) {
			check_live(dir);
			if (--dir->refs != 0)
				return;
			kobject *parent = dir->parent;
			unlink(*dir, guard);
			dirs_.erase(dir);
			delete dir;
			dir = parent;
		}
	}

	// All of the files, or none when a name is taken.
	int add_files(kobject *dir, const std::vector<std::pair<std::string, sysfs_file>> &files)
	{
		const std::lock_guard guard(lock_);
		check_live(dir);
		auto merged = dir->files;
		for (const auto &[name, file] : files)
			if (dir->children.contains(name) || !merged.try_emplace(name, file).second)
				return -EEXIST;
		dir->files.merge(merged);
		return 0;
	}

	// Runs handler on the file of a path if its mode has one of the wanted bits.
	template <class Handler>
	long run(std::string_view path, umode_t wanted, Handler handler)
	{
		kobject *dir = nullptr;
		const sysfs_file *file = nullptr;
		{
			const std::lock_guard guard(lock_);
			if (!find(path, dir, file))
				return -ENOENT;
			if ((file->mode & wanted) == 0)
				return -EACCES;
			++dir->running;
		}
		thread_context &ctx = self();
		check_lock_order(ctx, active_class());
		push_held_lock(ctx, dir, active_class());
		long result = 0;
		{
			const callback_check check("sysfs handler");
			result = handler(*file);
		}
		pop_held_lock(ctx, dir);
		const std::lock_guard guard(lock_);
		--dir->running;
		idle_.notify_all();
		return result;
	}

	std::vector<std::string> leftovers()
	{
		const std::lock_guard guard(lock_);
		std::vector<std::string> lines;
		for (const kobject *dir : dirs_) {
			if (!dir->of_module)
				continue;
			lines.push_back("sysfs directory " + path_of(*dir));
			for (const auto &[name, file] : dir->files)
				lines.push_back("sysfs file " + path_of(*dir) + '/' + name);
		}
		return lines;
	}

private:
	static void check_no_handler_of(const kobject *dir)
	{
		thread_context &ctx = self();
		const auto is_dir = [&](const held_lock &held) {
			return held.lock == dir;
		};
		if (std::ranges::any_of(ctx.held, is_dir))
			judge_stop("deadlock", "a directory is removed by a handler of its own");
		check_lock_order(ctx, active_class());
	}

	void unlink(kobject &dir, std::unique_lock<std::mutex> &guard)
	{
		if (dir.linked)
			dir.parent->children.erase(dir.name);
		dir.linked = false;
		idle_.wait(guard, [&] { return dir.running == 0; });
	}

	void check_live(const kobject *dir)
	{
		if (dir != &root_ && !dirs_.contains(dir))
			judge_stop("kobject", "use of a kobject that does not exist");
	}

	bool find(std::string_view path, kobject *&dir, const sysfs_file *&file)
	{
		if (next_component(path) != root_.name)
			return false;
		dir = &root_;
		for (;;) {
			const std::string_view name = next_component(path);
			if (const auto f = dir->files.find(name); f != dir->files.end()) {
				file = &f->second;
				return path.empty();
			}
			const auto child = dir->children.find(name);
			if (child == dir->children.end())
				return false;
			dir = child->second;
		}
	}

	static std::string path_of(const kobject &dir)
	{
		return (dir.parent ? path_of(*dir.parent) : std::string()) + '/' + dir.name;
	}

	std::mutex lock_;
	std::condition_variable idle_;
	kobject root_{"sys", nullptr, false};
	std::set<const kobject *> dirs_; // all but the root
};

const leftover_source sysfs_leftovers([] { return tree::get().leftovers(); });

// What the interface's sized storage holds; zeroed storage has no name.
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
static_assert(sizeof(attribute) <= sizeof(kobj_attribute));
static_assert(sizeof(group) <= sizeof(attribute_group));

attribute attribute_of(const kobj_attribute *storage)
{
	attribute attr;
	std::memcpy(&attr, storage->storage, sizeof(attr));
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
	const long length = tree::get().run(
		path, readable, [&](const sysfs_file &file) { return file.show(page.get()); });
	if (length < 0)
		return static_cast<int>(length);
	if (static_cast<std::size_t>(length) >= page_size)
		judge_stop("sysfs", "a show handler returns more than it may have written");
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
	return tree::get().run(path, writable, [&](const sysfs_file &file) {
		return count == 0 ? 0 : file.store(copy.get(), count);
	});
}

kobject *make_dir(std::string_view path)
{
	tree &sysfs = tree::get();
	next_component(path);
	kobject *dir = sysfs.root();
	bool made = false;
	while (!path.empty()) {
		const std::string_view name = next_component(path);
		kobject *child = sysfs.child(dir, name);
		kobject *next = child ? child : sysfs.add_dir(name, dir, false);
		// From here on the child alone keeps a directory that was made on the way.
		if (made)
			sysfs.put(dir);
		made = !child;
		dir = next;
	}
	return dir;
}

void remove_dir(kobject *dir)
{
	tree::get().put(dir);
}

void add_file(kobject *dir, std::string_view name, sysfs_file file)
{
	tree::get().add_files(dir, {{std::string(name), std::move(file)}});
}

} // namespace hosted

struct kobject *kernel_kobj = hosted::make_dir("/sys/kernel");

struct kobject *kobject_create_and_add(const char *name, struct kobject *parent)
{
	hosted::might_sleep("kobject_create_and_add");
	if (hosted::should_fail("kobject_create_and_add"))
		return nullptr;
	hosted::tree &sysfs = hosted::tree::get();
	return sysfs.add_dir(name, parent ? parent : sysfs.root(), true);
}

void kobject_put(struct kobject *kobj)
{
	if (!kobj)
		return;
	hosted::might_sleep("kobject_put");
	hosted::tree::get().put(kobj);
}

void kobject_del(struct kobject *kobj)
{
	if (!kobj)
		return;
	hosted::might_sleep("kobject_del");
	hosted::tree::get().del(kobj);
}

int sysfs_create_group(struct kobject *kobj, const struct attribute_group *grp)
{
	hosted::might_sleep("sysfs_create_group");
	if (hosted::should_fail("sysfs_create_group"))
		return -ENOMEM;
	hosted::group group;
	std::memcpy(&group, grp->storage, sizeof(group));
	std::vector<std::pair<std::string, hosted::sysfs_file>> files;
	for (size_t i = 0; i < group.count; ++i) {
		kobj_attribute *attr = group.attributes[i];
		files.emplace_back(hosted::attribute_of(attr).name, hosted::file_of(kobj, attr));
	}
	return hosted::tree::get().add_files(kobj, files);
}

int sysfs_emit(char *buf, const char *fmt, ...)
{
	if (!buf || reinterpret_cast<std::uintptr_t>(buf) % hosted::page_size != 0)
		hosted::judge_stop("sysfs", "sysfs_emit into something else than a handler's page");
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
	const hosted::attribute real{name, mode, show, store};
	std::memcpy(attr->storage, &real, sizeof(real));
}

void helper_attribute_group_init(struct attribute_group *grp, struct kobj_attribute *const *attrs,
				 size_t count)
{
	hosted::group real{count, {}};
	if (count > real.attributes.size())
		hosted::judge_stop("sysfs", "a group of more attributes than it has room for");
	std::copy_n(attrs, count, real.attributes.begin());
	std::memcpy(grp->storage, &real, sizeof(real));
}
