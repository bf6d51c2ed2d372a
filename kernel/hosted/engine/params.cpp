// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/params.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

#include <kernel/printk.h>
#include <kernel/rcupdate.h>

namespace hosted
{
namespace
{

constexpr std::size_t page_size = 1u << KERNEL_PAGE_SHIFT;
constexpr std::size_t max_string = 1024;

// Holds the module's parameter lock for a scope.
class param_lock_guard
{
public:
	explicit param_lock_guard(struct ::module *mod) : mod_(mod)
	{
		kernel_param_lock(mod_);
	}
	~param_lock_guard()
	{
		kernel_param_unlock(mod_);
	}
	param_lock_guard(const param_lock_guard &) = delete;
	param_lock_guard &operator=(const param_lock_guard &) = delete;

private:
	struct ::module *mod_;
};

// Parses digits in the base given by their prefix, then an optional newline.
int parse_digits(std::string_view text, unsigned long long &value)
{
	int base = 10;
	if (text.starts_with('0')) {
		base = 8;
		if (text.size() > 2 && (text[1] | 0x20) == 'x' &&
		    std::isxdigit(static_cast<unsigned char>(text[2]))) {
			base = 16;
			text.remove_prefix(2);
		}
	}
	const char *end = text.data() + text.size();
	const auto [rest, error] = std::from_chars(text.data(), end, value, base);
	if (error == std::errc::result_out_of_range)
		return -ERANGE;
	if (error != std::errc() || (rest != end && std::string_view(rest, end) != "\n"))
		return -EINVAL;
	return 0;
}

// The kernel's rules for an integer: an optional sign (unsigned ones accept no minus), then digits.
template <class T>
int parse_integer(std::string_view text, T &value)
{
	const bool negative = std::is_signed_v<T> && text.starts_with('-');
	if (negative || text.starts_with('+'))
		text.remove_prefix(1);
	unsigned long long magnitude = 0;
	if (const int error = parse_digits(text, magnitude))
		return error;
	const auto limit = static_cast<unsigned long long>(std::numeric_limits<T>::max());
	if (magnitude > limit + (negative ? 1 : 0))
		return -ERANGE;
	value = static_cast<T>(negative ? 0 - magnitude : magnitude);
	return 0;
}

} // namespace

module_params::module_params(const module_image &image) : image_(image) {}

module_params::~module_params()
{
	if (dir_)
		remove_dir(dir_);
	for (char *string : strings_)
		std::free(string);
}

int module_params::apply(std::span<const std::string> arguments)
{
	for (const std::string &argument : arguments) {
		const std::size_t equals = argument.find('=');
		const std::string name = argument.substr(0, equals);
		const auto param = std::ranges::find(image_.params, name, &module_param::name);
		if (param == image_.params.end()) {
			_printk(KERN_WARNING "%s: unknown parameter '%s' ignored\n", image_.name,
				name.c_str());
			continue;
		}
		const int error = equals == std::string::npos
					  ? -EINVAL
					  : set(*param, argument.c_str() + equals + 1);
		if (error != 0) {
			_printk(KERN_ERR "%s: bad argument '%s'\n", image_.name, argument.c_str());
			return error;
		}
	}
	return 0;
}

void module_params::publish()
{
	dir_ = make_dir(std::string("/sys/module/") + image_.name + "/parameters");
	for (const module_param &param : image_.params) {
		if (param.mode == 0)
			continue;
		add_file(dir_, param.name,
			 {
				 param.mode,
				 [this, &param](char *page) { return show(param, page); },
				 [this, &param](const char *text, size_t count) {
					 const int error = set(param, text);
					 return error != 0 ? error : static_cast<long>(count);
				 },
			 });
	}
}

int module_params::set(const module_param &param, const char *text)
{
	const param_lock_guard guard(image_.self);
	if (std::holds_alternative<kind_counts>(param.variable))
		return -EPERM;
	if (auto *const *string = std::get_if<char **>(&param.variable))
		return set_string(*string, text, false);
	if (auto *const string = std::get_if<rcu_string>(&param.variable))
		return set_string(string->variable, text, true);
	if (auto *const *number = std::get_if<int *>(&param.variable)) {
		int value = 0;
		const int error = parse_integer(text, value);
		if (error == 0)
			WRITE_ONCE(**number, value);
		return error;
	}
	unsigned int value = 0;
	const int error = parse_integer(text, value);
	if (error == 0)
		WRITE_ONCE(*std::get<unsigned int *>(param.variable), value);
	return error;
}

int module_params::set_string(char **variable, const char *text, bool read_unlocked)
{
	if (std::strlen(text) > max_string)
		return -ENOSPC;
	char *old = *variable;
	char *const copy = ::strdup(text);
	strings_.insert(copy);
	__atomic_store_n(variable, copy, __ATOMIC_RELEASE);
	// The string that the module was built with was not allocated.
	if (strings_.erase(old) == 0)
		return 0;
	if (read_unlocked)
		synchronize_rcu();
	std::free(old);
	return 0;
}

long module_params::show(const module_param &param, char *page)
{
	const param_lock_guard guard(image_.self);
	const auto show_string = [&](const char *text) {
		return std::min<long>(
			std::snprintf(page, page_size, "%s\n", text ? text : "(null)"),
			page_size - 1);
	};
	if (auto *const *string = std::get_if<char **>(&param.variable))
		return show_string(**string);
	if (auto *const string = std::get_if<rcu_string>(&param.variable))
		return show_string(*string->variable);
	if (auto *const *number = std::get_if<int *>(&param.variable))
		return std::snprintf(page, page_size, "%d\n", READ_ONCE(**number));
	if (auto *const *count = std::get_if<kind_counts>(&param.variable)) {
		u64 counts[2];
		(*count)(counts);
		return std::snprintf(page, page_size, "%llu,%llu\n", counts[0], counts[1]);
	}
	return std::snprintf(page, page_size, "%u\n",
			     READ_ONCE(*std::get<unsigned int *>(param.variable)));
}

} // namespace hosted

void kernel_param_lock(struct module *mod) NO_THREAD_SAFETY_ANALYSIS
{
	helper_mutex_lock(&mod->param_lock);
}

void kernel_param_unlock(struct module *mod) NO_THREAD_SAFETY_ANALYSIS
{
	helper_mutex_unlock(&mod->param_lock);
}
