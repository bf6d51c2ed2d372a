// SPDX-License-Identifier: GPL-2.0-only
// debugfs, mounted at /sys/kernel/debug. Its files are read and written by path, see sysfs.h.
#include <kernel/debugfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>

#include <hosted/engine/fault.h>
#include <hosted/engine/opaque.h>
#include <hosted/file_tree.h>
#include <hosted/inode.h>
#include <kernel/err.h>
#include <kernel/string.h>

// A directory, or a file in one.
struct dentry {
	kobject *dir;
	std::string file; // empty for a directory
	dentry *parent;
	std::set<dentry *> children{};
};

namespace hosted
{
namespace
{

struct simple_attribute {
	int (*get)(void *data, u64 *val);
	void *data;
	const char *fmt;
	char text[24]; // empty until the first read
};

} // namespace
} // namespace hosted

struct file {
	std::unique_ptr<hosted::simple_attribute> attribute{};
	long position = 0;
};

namespace hosted
{
namespace
{

// The real contents of the interface's sized storage; zeroed storage has no open function.
struct operations {
	int (*open)(inode *inode, file *file);
};

struct registry {
	std::mutex lock;
	kobject *const root = make_dir("/sys/kernel/debug");
	std::set<dentry *> entries;
};

registry &all()
{
	static registry instance;
	return instance;
}

// Called under the registry's lock.
void check_live(dentry *d)
{
	if (!all().entries.contains(d))
		judge_stop("debugfs", "use of an entry that does not exist");
}

dentry *add(kobject *dir, std::string_view file, dentry *parent)
{
	auto *added = new dentry{dir, std::string(file), parent};
	if (parent)
		parent->children.insert(added);
	all().entries.insert(added);
	return added;
}

kobject *dir_of(dentry *parent)
{
	if (!parent)
		return all().root;
	check_live(parent);
	return parent->dir;
}

long read_attribute(file &f, char *to, long size)
{
	simple_attribute &attr = *f.attribute;
	if (!attr.get)
		return -EACCES;
	if (f.position == 0 || attr.text[0] == '\0') {
		u64 value = 0;
		if (const int error = attr.get(attr.data, &value))
			return error;
		scnprintf(attr.text, sizeof(attr.text), attr.fmt, value);
	}
	const long length = static_cast<long>(std::strlen(attr.text));
	const long count = std::min(size, std::max(length - f.position, 0L));
	std::memcpy(to, attr.text + f.position, count);
	f.position += count;
	return count;
}

// Opens a file, calls use to read or write it, and closes it.
template <class Use>
long with_open(operations ops, void *data, Use use)
{
	inode node(nullptr, data);
	file f;
	if (const int error = ops.open(&node, &f))
		return error;
	const long result = use(f);
	simple_attr_release(&node, &f);
	return result;
}

sysfs_file file_of(umode_t mode, operations ops, void *data)
{
	return {
		mode,
		[=](char *page) {
			// Reads until the end of the file, as every program does.
			return with_open(ops, data, [&](file &f) {
				constexpr long size = 1L << KERNEL_PAGE_SHIFT;
				long count = 0;
				do {
					count = read_attribute(f, page + f.position,
							       size - 1 - f.position);
				} while (count > 0);
				return count < 0 ? count : f.position;
			});
		},
		// No attribute has a setter.
		[=](const char *, size_t) {
			return with_open(ops, data, [](file &) { return -EACCES; });
		},
	};
}

void remove_entry(dentry *d)
{
	for (dentry *child : d->children)
		remove_entry(child);
	if (d->file.empty())
		file_tree::get().put(d->dir);
	else
		file_tree::get().remove_file(d->dir, d->file);
	const std::lock_guard guard(all().lock);
	all().entries.erase(d);
	delete d;
}

} // namespace
} // namespace hosted

using namespace hosted;

dentry *debugfs_create_dir(const char *name, dentry *parent)
{
	might_sleep("debugfs_create_dir");
	if (IS_ERR(parent))
		return parent;
	if (should_fail("debugfs_create_dir"))
		return static_cast<dentry *>(ERR_PTR(-ENOMEM));
	const std::lock_guard guard(all().lock);
	kobject *dir = file_tree::get().add_dir(name, dir_of(parent), true);
	if (!dir)
		return static_cast<dentry *>(ERR_PTR(-EEXIST));
	return add(dir, {}, parent);
}

dentry *debugfs_create_file(const char *name, umode_t mode, dentry *parent, void *data,
			    const file_operations *fops)
{
	might_sleep("debugfs_create_file");
	const auto ops = load_opaque<operations>(fops);
	if (!ops.open)
		judge_stop("debugfs", "use of file operations that were never initialised");
	if (IS_ERR(parent))
		return parent;
	if (should_fail("debugfs_create_file"))
		return static_cast<dentry *>(ERR_PTR(-ENOMEM));
	const std::lock_guard guard(all().lock);
	kobject *dir = dir_of(parent);
	if (const int error = file_tree::get().add_files(dir, {{name, file_of(mode, ops, data)}}))
		return static_cast<dentry *>(ERR_PTR(error));
	return add(dir, name, parent);
}

void debugfs_remove(dentry *d)
{
	if (IS_ERR_OR_NULL(d))
		return;
	might_sleep("debugfs_remove");
	{
		const std::lock_guard guard(all().lock);
		check_live(d);
		if (d->parent)
			d->parent->children.erase(d);
	}
	remove_entry(d);
}

int simple_attr_open(inode *inode, file *file, int (*get)(void *data, u64 *val),
		     int (*set)(void *data, u64 val), const char *fmt)
{
	if (set)
		judge_stop("debugfs",
			   "an attribute with a setter, which this kernel does not call");
	if (should_fail("simple_attr_open"))
		return -ENOMEM;
	file->attribute.reset(new simple_attribute{get, inode->i_private, fmt, {}});
	return 0;
}

int simple_attr_release(inode *, file *file)
{
	file->attribute.reset();
	return 0;
}

void helper_attribute_fops_init(file_operations *fops, int (*open)(inode *inode, file *file))
{
	store_opaque(fops, operations{open});
}
