// SPDX-License-Identifier: GPL-2.0-only
// Compiled into the module's shared object; describes the module to the loader.
#include <hosted/engine/module_image.h>

#include <hot_words.h>
#include <mem_adapter.h>
#include <module_list.h>

struct module __this_module;

// Declares the parameters' variables with the types in the list.
// NOLINTBEGIN(bugprone-macro-parentheses): declarators
#define DECLARE_int(variable) extern int variable;
#define DECLARE_uint(variable) extern unsigned int variable;
#define DECLARE_int_field(variable)
#define DECLARE_uint_field(variable)
#define DECLARE_charp(variable) extern char *variable;
#define DECLARE_charp_rcu(variable) extern char *variable;
#define DECLARE_kind_counts(function) extern "C" void function(u64 counts[2]);
// NOLINTEND(bugprone-macro-parentheses)
#define DECLARE(name, variable, type, mode) DECLARE_##type(variable)
TARN_MODULE_PARAMS(DECLARE)

namespace
{

#define VARIABLE_int(variable) &(variable)
#define VARIABLE_uint(variable) &(variable)
#define VARIABLE_int_field(variable) &(variable)
#define VARIABLE_uint_field(variable) &(variable)
#define VARIABLE_charp(variable) &(variable)
#define VARIABLE_charp_rcu(variable)                                                               \
	hosted::rcu_string                                                                         \
	{                                                                                          \
		&(variable)                                                                        \
	}
#define VARIABLE_kind_counts(function) &(function)
#define PARAM(name, variable, type, mode) {#name, VARIABLE_##type(variable), mode},
constexpr hosted::module_param params[] = {TARN_MODULE_PARAMS(PARAM)};

#define EXPORT(function) {#function, reinterpret_cast<void *>(&(function)), false},
#define EXPORT_GPL(function) {#function, reinterpret_cast<void *>(&(function)), true},
const hosted::module_export exports[] = {TARN_MODULE_EXPORTS(EXPORT, EXPORT_GPL)};

} // namespace

extern "C" {
[[gnu::visibility("default")]] extern const hosted::module_image module_image;
}

const hosted::module_image module_image = {
	TARN_MODULE_NAME,
	TARN_MODULE_LICENSE,
	tarn_mem_adapter_init,
	tarn_mem_adapter_exit,
	&__this_module,
	params,
	exports,
};
