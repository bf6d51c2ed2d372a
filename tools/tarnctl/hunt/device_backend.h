// SPDX-License-Identifier: GPL-2.0-only
// The memcheck entries of a running kernel.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include <tarnctl/device/ioctl_device.h>
#include <tarnctl/device/kernel_log.h>
#include <tarnctl/device/module_parameter.h>
#include <tarnctl/hunt/hunt_backend.h>

namespace tarn
{

// Throws device_error on failures that are not the module's own.
class device_backend : public hunt_backend
{
public:
	static constexpr const char *parameters = "/sys/module/tarn_mem_adapter/parameters";

	device_backend(ioctl_device &control, kernel_log &log,
		       std::string parameter_directory = parameters)
		: control_(control), log_(log), parameters_(std::move(parameter_directory))
	{
	}

	bool is_tracking() override;
	int command(std::uint32_t memtype, std::uint32_t cmd) override;
	void set_target(const std::string &cache) override;
	int read(std::uint32_t memtype, std::uint64_t size, std::string &text) override;
	std::optional<event_counts> events() override;
	std::string take_log() override;

private:
	[[nodiscard]] std::string track_flag() const;

	ioctl_device &control_;
	kernel_log &log_;
	std::string parameters_;
	std::optional<scoped_parameter> target_; // set until the module has chosen
};

} // namespace tarn
