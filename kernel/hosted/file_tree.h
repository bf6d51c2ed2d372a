// SPDX-License-Identifier: GPL-2.0-only
// The only tree of files under /sys: directories, and files with handlers. sysfs, debugfs and
// module parameters add their own.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <hosted/sysfs.h>

// A directory. Each child holds a reference to its parent.
struct kobject {
	std::string name;
	kobject *parent;
	bool of_module;
	bool linked = true; // visible
	unsigned refs = 1;
	unsigned running = 0; // handlers of its files that are running
	std::map<std::string, kobject *, std::less<>> children{};
	std::map<std::string, hosted::sysfs_file, std::less<>> files{};
};

namespace hosted
{

// Removes the first component from a path and returns it.
std::string_view next_component(std::string_view &path);

// Thread safe. Functions that wait for handlers stop the program if the caller is itself one of
// those handlers.
class file_tree
{
public:
	static file_tree &get();

	kobject *root()
	{
		return &root_;
	}
	// Returns null if the name is taken.
	kobject *add_dir(std::string_view name, kobject *parent, bool of_module);
	kobject *child(kobject *parent, std::string_view name);
	// Hides the directory and waits for its handlers; references to it remain valid.
	void del(kobject *dir);
	void put(kobject *dir);
	// Adds all of the files, or none if a name is taken.
	int add_files(kobject *dir, const std::vector<std::pair<std::string, sysfs_file>> &files);
	// Waits for the directory's running handlers.
	void remove_file(kobject *dir, std::string_view name);
	// Runs handler on the file at a path if its mode has one of the wanted bits.
	long run(std::string_view path, umode_t wanted,
		 const std::function<long(const sysfs_file &file)> &handler);
	std::vector<std::string> leftovers();

private:
	static void check_no_handler_of(const kobject *dir);
	static std::string path_of(const kobject &dir);
	void unlink(kobject &dir, std::unique_lock<std::mutex> &guard);
	void check_live(const kobject *dir);
	bool find(std::string_view path, kobject *&dir, const sysfs_file *&file);

	std::mutex lock_;
	std::condition_variable idle_;
	kobject root_{"sys", nullptr, false};
	std::set<const kobject *> dirs_; // all but the root
};

} // namespace hosted
