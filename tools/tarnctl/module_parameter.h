// SPDX-License-Identifier: GPL-2.0-only
// A parameter of a loaded module, as a file of sysfs.
#pragma once

#include <string>

namespace tarn
{

// Throws device_error.
std::string read_parameter(const std::string &file);
// An empty value, which the file takes for nothing written, is written as a lone NUL.
void write_parameter(const std::string &file, const std::string &value);

// Lends a text parameter a value; its own comes back at the end.
class parameter_loan
{
public:
	parameter_loan(std::string file, const std::string &value);
	~parameter_loan();
	parameter_loan(const parameter_loan &) = delete;
	parameter_loan &operator=(const parameter_loan &) = delete;

private:
	std::string file_;
	std::string own_;
};

} // namespace tarn
