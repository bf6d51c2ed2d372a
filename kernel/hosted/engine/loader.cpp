// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/loader.h>

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <kernel/rcupdate.h>
#include <kernel/tracepoint.h>

extern "C" {
// The shared object's first byte and the one after its last, in a program that carries it.
[[gnu::weak]] extern const char carried_module_begin[];
[[gnu::weak]] extern const char carried_module_end[];
}

namespace hosted
{
namespace
{

constinit std::atomic<bool> slot_taken{false};

// The module that is loaded, for those that know only its own object.
constinit std::mutex current_lock;
constinit loaded_module *current = nullptr;

constinit lock_class_key param_lock_key{};

// The loader opens files only by their names, and /proc has a name for this one.
int make_carried_file()
{
	const int file = memfd_create("tarn_mem_adapter.so", MFD_CLOEXEC);
	std::string_view rest(carried_module_begin, carried_module_end);
	while (file >= 0 && !rest.empty()) {
		const ssize_t n = write(file, rest.data(), rest.size());
		if (n < 0)
			break;
		rest.remove_prefix(static_cast<std::size_t>(n));
	}
	if (!rest.empty())
		throw std::system_error(errno, std::generic_category(),
					"cannot load the module: no file in memory");
	return file;
}

} // namespace

std::filesystem::path default_module_path()
{
	if (carried_module_begin != nullptr) {
		// Open until the program ends, as every load and unload looks the name up.
		static const int file = make_carried_file();
		return "/proc/self/fd/" + std::to_string(file);
	}
	return std::filesystem::read_symlink("/proc/self/exe")
		.replace_filename("tarn_mem_adapter.so");
}

loaded_module::loaded_module(const std::vector<std::string> &arguments,
			     const std::filesystem::path &path)
	: status_(-EEXIST), path_(path)
{
	might_sleep("module load");
	if (slot_taken.exchange(true))
		return;
	handle_ = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
	if (handle_)
		image_ = internal<const module_image>("module_image");
	if (!image_) {
		const std::string reason = dlerror();
		if (handle_)
			dlclose(handle_);
		slot_taken = false;
		throw std::runtime_error("cannot load the module: " + reason);
	}
	__mutex_init(&image_->self->param_lock, "param_lock", &param_lock_key);
	params_.emplace(*image_);
	status_ = params_->apply(arguments);
	if (status_ == 0) {
		params_->publish();
		const callback_check check("the module's init");
		status_ = image_->init();
	}
	if (status_ < 0) {
		release();
		return;
	}
	const std::lock_guard guard(current_lock);
	users_ = 0;
	current = this;
}

loaded_module::~loaded_module()
{
	if (unload() == -EAGAIN)
		judge_stop("module unload", "the module is still in use");
}

int loaded_module::unload()
{
	might_sleep("module unload");
	int users = 0;
	if (!users_.compare_exchange_strong(users, gone))
		return users == gone ? -ENOENT : -EAGAIN;
	{
		const std::lock_guard guard(current_lock);
		current = nullptr;
	}
	{
		const callback_check check("the module's exit");
		image_->exit();
	}
	status_ = -ENOENT;
	release();
	return 0;
}

bool loaded_module::get()
{
	int users = users_;
	while (users != gone)
		if (users_.compare_exchange_weak(users, users + 1))
			return true;
	return false;
}

void loaded_module::put()
{
	if (users_.fetch_sub(1) <= 0)
		judge_stop("module use count", "put() without a matching get()");
}

bool try_module_get(const struct ::module *owner)
{
	const std::lock_guard guard(current_lock);
	return current && current->image_->self == owner && current->get();
}

void module_put(const struct ::module *owner)
{
	const std::lock_guard guard(current_lock);
	if (!current || current->image_->self != owner)
		judge_stop("module use count", "put() of a module that is not loaded");
	current->put();
}

const module_export *loaded_module::find_export(std::string_view name) const
{
	const auto found = std::ranges::find(image_->exports, name, &module_export::name);
	return found == image_->exports.end() ? nullptr : &*found;
}

void *loaded_module::find_internal(const char *name) const
{
	return dlsym(handle_, name);
}

// The common end of a failed start and of an unload.
void loaded_module::release()
{
	params_.reset();
	// A kernel waits for a grace period before it frees a module; this ends the module's
	// probes.
	helper_tracepoint_synchronize_unregister();
	std::string left;
	for (const std::string &line : leftovers())
		left += "\n  " + line;
	if (!left.empty())
		judge_stop("left behind at module unload", left);
	image_ = nullptr;
	dlclose(handle_);
	handle_ = nullptr;
	if (dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD))
		judge_stop("module unload", "the shared object is still mapped");
	slot_taken = false;
}

} // namespace hosted
