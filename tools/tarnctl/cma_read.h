// SPDX-License-Identifier: GPL-2.0-only
// Reading the CMA areas of the running kernel: the module's files make it log its reports.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cma_area.h"
#include "kernel_log.h"

namespace tarn
{

struct unknown_area : std::runtime_error {
	using std::runtime_error::runtime_error;
};

class cma_files
{
public:
	// The root of the file system is another one in tests.
	explicit cma_files(const std::string &root = "");

	// In order. Throws device_error where the module offers none.
	[[nodiscard]] std::vector<std::string> names() const;

	// Has the report written, and again when it cannot be told from what others had logged at
	// the same time; the log is opened before each. Throws unknown_area or device_error.
	[[nodiscard]] cma_area read(const std::string &name,
				    const std::function<kernel_log()> &open_log) const;

private:
	std::string areas_;
	std::string allocator_;
	std::string parameters_;
};

} // namespace tarn
