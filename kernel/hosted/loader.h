// SPDX-License-Identifier: GPL-2.0-only
// Loads the module, a shared object, as a kernel does.
#pragma once

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <hosted/module_image.h>
#include <hosted/params.h>

namespace hosted
{

// The module's file beside the running program.
std::filesystem::path default_module_path();

// One load of a module. Use and unload it on one thread at a time; get() and put() on any.
class loaded_module
{
public:
	// Sets the parameters from the arguments ("slab_k=4096") and runs the start entry; see
	// status(). Throws if the file is no module.
	explicit loaded_module(const std::vector<std::string> &arguments = {},
			       const std::filesystem::path &path = default_module_path());
	// Unloads; the module must have no user then.
	~loaded_module();
	loaded_module(const loaded_module &) = delete;
	loaded_module &operator=(const loaded_module &) = delete;

	// The result of the load: not negative while the module is loaded, -EEXIST if one was
	// already, else the error that the start entry or a parameter gave.
	[[nodiscard]] int status() const
	{
		return status_;
	}
	// Runs the stop entry and unloads. Returns 0, -EAGAIN while the module has users, or
	// -ENOENT when it is not loaded. Stops the program if the module leaves anything behind.
	int unload();

	// A user of the module keeps it loaded. get() is false when it is not loaded.
	bool get();
	void put();

	// A function that the module exports to others; null when it does not.
	template <class F>
	F *symbol(std::string_view name) const
	{
		const module_export *e = find_export(name);
		return e ? reinterpret_cast<F *>(e->address) : nullptr;
	}
	// Any global function or object of the module, for tests that look inside; null if there is
	// none.
	template <class T>
	T *internal(const char *name) const
	{
		return reinterpret_cast<T *>(find_internal(name));
	}
	[[nodiscard]] const module_image &image() const
	{
		return *image_;
	}

private:
	[[nodiscard]] const module_export *find_export(std::string_view name) const;
	[[nodiscard]] void *find_internal(const char *name) const;
	void release();

	int status_;
	std::string path_;
	void *handle_ = nullptr;
	const module_image *image_ = nullptr;
	std::optional<module_params> params_;
	std::atomic<int> users_ = gone; // gone, or the number of users
	static constexpr int gone = -1;
};

} // namespace hosted
