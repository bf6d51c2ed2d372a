// SPDX-License-Identifier: GPL-2.0-only
// Reading the CMA areas of the running kernel. Each area has a file that makes the module log a
// report.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <tarnctl/cma/cma_area.h>
#include <tarnctl/device/kernel_log.h>

namespace tarn
{

struct unknown_area : std::runtime_error {
	using std::runtime_error::runtime_error;
};

class cma_reader
{
public:
	// Tests pass another root directory.
	explicit cma_reader(const std::string &root = "");

	// Sorted. Throws device_error if the module is not loaded or its files cannot be read.
	[[nodiscard]] std::vector<std::string> names() const;

	// Makes the module log its report on behalf of the calling thread and reads it; tries again
	// if others logged reports at the same time. The log is opened before each attempt. Throws
	// unknown_area or device_error.
	[[nodiscard]] cma_area read(const std::string &name,
				    const std::function<kernel_log()> &open_log) const;

	// Reads areas one after the other. Throws unknown_area, or no_kernel_log.
	[[nodiscard]] cma_areas read_all(const std::vector<std::string> &names,
					 const std::function<kernel_log()> &open_log) const;

private:
	std::string root_;
	std::string areas_;
	std::string allocator_;
	std::string parameters_;
};

} // namespace tarn
