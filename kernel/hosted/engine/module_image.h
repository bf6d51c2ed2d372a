// SPDX-License-Identifier: GPL-2.0-only
// The symbol module_image, through which a module's shared object describes itself to the loader.
#pragma once

#include <span>
#include <variant>

#include <kernel/module.h>
#include <kernel/mutex.h>

// The module's own object; its storage goes away with the module.
struct module {
	struct mutex param_lock;
};

namespace hosted
{

// A string that is read in an RCU read section, without the parameter lock: it is freed a grace
// period after it was replaced.
struct rcu_string {
	char **variable;
};

// Fills in two numbers, for allocations and frees.
using kind_counts = void (*)(u64 counts[2]);

struct module_param {
	const char *name;
	std::variant<int *, unsigned int *, char **, rcu_string, kind_counts> variable;
	umode_t mode; // 0: no file
};

struct module_export {
	const char *name;
	void *address;
	bool gpl_only;
};

struct module_image {
	const char *name;
	const char *licence;
	int (*init)();
	void (*exit)();
	struct ::module *self;
	std::span<const module_param> params;
	std::span<const module_export> exports;
};

} // namespace hosted
