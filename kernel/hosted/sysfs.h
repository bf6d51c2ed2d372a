// SPDX-License-Identifier: GPL-2.0-only
// Files under /sys: reads and writes by processes, and directories of the kernel's own.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <kernel/sysfs.h>

namespace hosted
{

// One read from the start of a file, or one write, by its path including /sys. Both run the file's
// handler on this thread. On failure they return a negative error; otherwise read_file returns 0
// and write_file the number of bytes accepted (one write passes on at most a page). Context:
// process. Thread safe.
int read_file(std::string_view path, std::string &text);
long write_file(std::string_view path, std::string_view text);

// The handlers of a file. show gets a zeroed, page-aligned page; store gets NUL-terminated text.
struct sysfs_file {
	umode_t mode;
	std::function<long(char *page)> show;
	std::function<long(const char *text, size_t count)> store;
};

// Creates a directory of the kernel's own, with missing parents; it lives until remove_dir, which
// waits for running handlers. The path begins with /sys/.
kobject *make_dir(std::string_view path);
void remove_dir(kobject *dir);
void add_file(kobject *dir, std::string_view name, sysfs_file file);

} // namespace hosted
