// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/file_tree.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/lockdep.h>

namespace hosted
{
namespace
{

// Represents a running handler as a lock: the handler holds it, and removal of its directory takes
// it.
unsigned active_class()
{
	static constinit char key;
	static const unsigned lock_class = hosted::lock_class("sysfs handler", &key);
	return lock_class;
}

const leftover_source file_leftovers([] { return file_tree::get().leftovers(); });

} // namespace

std::string_view next_component(std::string_view &path)
{
	path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
	const std::string_view component = path.substr(0, path.find('/'));
	path.remove_prefix(component.size());
	return component;
}

file_tree &file_tree::get()
{
	static file_tree t;
	return t;
}

kobject *file_tree::add_dir(std::string_view name, kobject *parent, bool of_module)
{
	const std::lock_guard guard(lock_);
	check_live(parent);
	if (parent->children.contains(name) || parent->files.contains(name))
		return nullptr;
	auto dir = std::unique_ptr<kobject>(new kobject{std::string(name), parent, of_module});
	parent->children.emplace(name, dir.get());
	++parent->refs;
	dirs_.insert(dir.get());
	return dir.release();
}

kobject *file_tree::child(kobject *parent, std::string_view name)
{
	const std::lock_guard guard(lock_);
	const auto found = parent->children.find(name);
	return found == parent->children.end() ? nullptr : found->second;
}

void file_tree::del(kobject *dir)
{
	check_no_handler_of(dir);
	std::unique_lock guard(lock_);
	check_live(dir);
	unlink(*dir, guard);
}

void file_tree::put(kobject *dir)
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

int file_tree::add_files(kobject *dir, const std::vector<std::pair<std::string, sysfs_file>> &files)
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

void file_tree::remove_file(kobject *dir, std::string_view name)
{
	check_no_handler_of(dir);
	std::unique_lock guard(lock_);
	check_live(dir);
	const auto found = dir->files.find(name);
	if (found == dir->files.end())
		judge_stop("sysfs", "removal of a file that does not exist");
	const auto out_of_sight = dir->files.extract(found);
	idle_.wait(guard, [&] { return dir->running == 0; });
}

long file_tree::run(std::string_view path, umode_t wanted,
		    const std::function<long(const sysfs_file &file)> &handler)
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

std::vector<std::string> file_tree::leftovers()
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

void file_tree::check_no_handler_of(const kobject *dir)
{
	thread_context &ctx = self();
	const auto is_dir = [&](const held_lock &held) {
		return held.lock == dir;
	};
	if (std::ranges::any_of(ctx.held, is_dir))
		judge_stop("deadlock", "a directory is removed by a handler of its own");
	check_lock_order(ctx, active_class());
}

std::string file_tree::path_of(const kobject &dir)
{
	return (dir.parent ? path_of(*dir.parent) : std::string()) + '/' + dir.name;
}

void file_tree::unlink(kobject &dir, std::unique_lock<std::mutex> &guard)
{
	if (dir.linked)
		dir.parent->children.erase(dir.name);
	dir.linked = false;
	idle_.wait(guard, [&] { return dir.running == 0; });
}

void file_tree::check_live(const kobject *dir)
{
	if (dir != &root_ && !dirs_.contains(dir))
		judge_stop("kobject", "use of a kobject that does not exist");
}

bool file_tree::find(std::string_view path, kobject *&dir, const sysfs_file *&file)
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

} // namespace hosted
