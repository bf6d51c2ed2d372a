// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>
#include <string>

namespace tarn::trace
{

// A trace file that cannot be used. what() is one sentence for the user that names the file.
class trace_error : public std::runtime_error
{
public:
	trace_error(const std::string &path, const std::string &what)
		: std::runtime_error(path + ": " + what)
	{
	}
};

} // namespace tarn::trace
