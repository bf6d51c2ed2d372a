// SPDX-License-Identifier: GPL-2.0-only
// The loaded module in sysfs, and its parameters.
#pragma once

#include <string>

namespace tarn
{

// Throws device_error if the module is not loaded. Tests pass another root directory.
void require_module(const std::string &root = "");

// The text of a parameter's file or of another one that is no longer than a page, without the line
// end. Throws device_error.
std::string read_kernel_file(const std::string &file);
// Writes a lone NUL for an empty value, since the kernel ignores a write of no bytes. Throws
// device_error.
void write_parameter(const std::string &file, const std::string &value);

// Sets a text parameter, and sets it back when it goes out of scope. The constructor throws
// device_error.
class scoped_parameter
{
public:
	scoped_parameter(std::string file, const std::string &value);
	~scoped_parameter();
	scoped_parameter(const scoped_parameter &) = delete;
	scoped_parameter &operator=(const scoped_parameter &) = delete;

private:
	std::string file_;
	std::string before_;
};

} // namespace tarn
