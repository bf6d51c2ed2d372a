// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/loader.h>

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <stdexcept>

#include <hosted/judge.h>
#include <hosted/leftovers.h>
#include <kernel/rcupdate.h>
#include <kernel/tracepoint.h>

namespace hosted
{
namespace
{

constinit std::atomic<bool> slot_taken{false};

constinit lock_class_key param_lock_key{};

} // namespace

std::filesystem::path default_module_path()
{
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
	if (status_ < 0)
		release();
	else
		users_ = 0;
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
		judge_stop("module use count", "a user is put that the module does not have");
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

// What both a failed start and a stop end with.
void loaded_module::release()
{
	params_.reset();
	// A kernel lets a grace period pass before it frees a module, which ends the module's
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
		judge_stop("module unload", "the shared object stays mapped, with its data");
	slot_taken = false;
}

} // namespace hosted
