// SPDX-License-Identifier: GPL-2.0-only
// Loads the module, a shared object, the way a kernel does.
#pragma once

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <hosted/engine/module_image.h>
#include <hosted/engine/params.h>

namespace hosted
{

// The module that the running program carries within itself, as a file in memory, or else the file
// beside the program.
std::filesystem::path default_module_path();

// One load of a module. Use and unload it on one thread at a time; get() and put() may be called on
// any.
class loaded_module
{
public:
	// Sets the parameters from arguments such as "slab_k=4096" and runs the start entry; see
	// status(). Throws if the file is not a module.
	explicit loaded_module(const std::vector<std::string> &arguments = {},
			       const std::filesystem::path &path = default_module_path());
	// Unloads; the module must have no users.
	~loaded_module();
	loaded_module(const loaded_module &) = delete;
	loaded_module &operator=(const loaded_module &) = delete;

	// The result of the load: not negative while the module is loaded, -EEXIST if another one
	// was loaded already, or the error of the start entry or of a parameter.
	[[nodiscard]] int status() const
	{
		return status_;
	}
	// Runs the stop entry and unloads. Returns 0, -EAGAIN if the module has users, or -ENOENT
	// if it is not loaded. Stops the program if the module leaves anything behind.
	int unload();

	// Adds a user, which keeps the module loaded, or removes one. get() returns false if it is
	// not loaded.
	bool get();
	void put();

	// A function that the module exports; null if there is none.
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

	friend bool try_module_get(const struct ::module *owner);
	friend void module_put(const struct ::module *owner);

	int status_;
	std::string path_;
	void *handle_ = nullptr;
	const module_image *image_ = nullptr;
	std::optional<module_params> params_;
	std::atomic<int> users_ = gone; // gone, or the number of users
	static constexpr int gone = -1;
};

// Adds a user to a module, named by its own object, or removes one. Get returns false if the module
// is not loaded, or about to go. Context: any.
bool try_module_get(const struct ::module *owner);
void module_put(const struct ::module *owner);

} // namespace hosted
