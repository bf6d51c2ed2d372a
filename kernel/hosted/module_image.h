// SPDX-License-Identifier: GPL-2.0-only
// What a module's shared object tells the loader of itself: the symbol module_image.
#pragma once

#include <span>
#include <variant>

#include <kernel/module.h>
#include <kernel/mutex.h>

// The module's own object; its storage goes when the module does.
struct module {
	struct mutex param_lock;
};

namespace hosted
{

// A string that is read without the parameter lock, in an RCU read section: it outlives its
// replacement by a grace period.
struct rcu_string {
	char **variable;
};

struct module_param {
	const char *name;
	std::variant<int *, unsigned int *, char **, rcu_string> variable;
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
	const char *description;
	int (*init)();
	void (*exit)();
	struct ::module *self;
	std::span<const module_param> params;
	std::span<const module_export> exports;
};

} // namespace hosted
