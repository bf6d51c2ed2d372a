// SPDX-License-Identifier: GPL-2.0-only
// The memcheck entries of a running kernel.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "control_device.h"
#include "kernel_log.h"
#include "memcheck_device.h"
#include "module_parameter.h"

namespace tarn
{

// Failures that are not the module's own throw device_error.
class kernel_device : public memcheck_device
{
public:
	static constexpr const char *parameters = "/sys/module/tarn_mem_adapter/parameters";

	kernel_device(control_device &control, kernel_log &log,
		      std::string parameter_directory = parameters)
		: control_(control), log_(log), parameters_(std::move(parameter_directory))
	{
	}

	bool is_tracking() override;
	int command(std::uint32_t memtype, std::uint32_t cmd) override;
	void set_target(const std::string &cache) override;
	int read(std::uint32_t memtype, std::uint64_t size, std::string &text) override;
	std::string take_log() override;

private:
	[[nodiscard]] std::string track_flag() const;

	control_device &control_;
	kernel_log &log_;
	std::string parameters_;
	std::optional<parameter_loan> target_; // until the module has chosen
};

} // namespace tarn
