// SPDX-License-Identifier: GPL-2.0-only
// Files under /sys: how a process reads and writes them, and how the kernel itself adds some.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <kernel/sysfs.h>

namespace hosted
{

// One read from the start of a file, or one write, by its path from /sys on. Both run the file's
// handler on this thread. They return a negative error; read_file otherwise 0, write_file the bytes
// that were taken, of which one write passes on at most a page. Context: process. Thread safe.
int read_file(std::string_view path, std::string &text);
long write_file(std::string_view path, std::string_view text);

// What stands behind a file. show gets a zeroed, page-aligned page; store gets NUL-terminated text.
struct sysfs_file {
	umode_t mode;
	std::function<long(char *page)> show;
	std::function<long(const char *text, size_t count)> store;
};

// A directory of the kernel's own, with its parents where they are missing; lives until remove_dir,
// which waits for running handlers. The path begins with /sys/.
kobject *make_dir(std::string_view path);
void remove_dir(kobject *dir);
void add_file(kobject *dir, std::string_view name, sysfs_file file);

} // namespace hosted
