// SPDX-License-Identifier: GPL-2.0-only
// Module parameters, set at load and then available as files under /sys/module/NAME/parameters.
#pragma once

#include <set>
#include <span>
#include <string>

#include <hosted/engine/module_image.h>
#include <hosted/sysfs.h>

namespace hosted
{

// The parameters of one loaded module. The files are thread safe.
class module_params
{
public:
	explicit module_params(const module_image &image);
	// Removes the files, then frees the strings that were set.
	~module_params();
	module_params(const module_params &) = delete;
	module_params &operator=(const module_params &) = delete;

	// Sets each "name=value"; an unknown name is only logged. Returns 0 or the error of the
	// first bad value.
	int apply(std::span<const std::string> arguments);
	// Adds the files.
	void publish();

private:
	int set(const module_param &param, const char *text);
	int set_string(char **variable, const char *text, bool read_unlocked);
	long show(const module_param &param, char *page);

	const module_image &image_;
	kobject *dir_ = nullptr;
	std::set<char *> strings_; // guarded by the module's parameter lock
};

} // namespace hosted
