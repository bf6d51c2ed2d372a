// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/device_backend.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include <uapi/tarn_device.h>

namespace tarn
{

std::string device_backend::track_flag() const
{
	return parameters_ + "/slub_track_flag";
}

bool device_backend::is_tracking()
{
	return read_kernel_file(track_flag()) != "0";
}

int device_backend::command(std::uint32_t memtype, std::uint32_t cmd)
{
	memcheck_command record = {};

	record.memtype = memtype;
	record.cmd = cmd;
	const int ret = control_.call(TARN_IOC_COMMAND, &record);

	if (memtype == MEMTYPE_SLUB && cmd == MEMCHECK_CMD_PREPARE)
		target_.reset();
	// The module refuses to switch off if the target was destroyed meanwhile.
	if (memtype == MEMTYPE_SLUB && cmd == MEMCHECK_CMD_OFF && ret)
		write_parameter(track_flag(), "0");
	return ret;
}

void device_backend::set_target(const std::string &cache)
{
	target_.emplace(parameters_ + "/specified_target", cache);
}

int device_backend::read(std::uint32_t memtype, std::uint64_t size, std::string &text)
{
	const auto buffer =
		std::make_unique_for_overwrite<std::byte[]>(sizeof(memcheck_info) + size);
	auto *info = new (buffer.get()) memcheck_info{memtype, 0, size};

	if (const int ret = control_.call(TARN_IOC_READ_STACKS, info))
		return ret;
	text.assign(reinterpret_cast<const char *>(buffer.get() + sizeof(*info)),
		    std::min(info->size, size));
	return 0;
}

std::optional<event_counts> device_backend::events()
{
	std::error_code error;

	if (!std::filesystem::exists(parameters_ + "/slub_recorded", error))
		return std::nullopt;
	return read_event_counts([this](const std::string &name) {
		return read_kernel_file(parameters_ + "/" + name);
	});
}

std::string device_backend::take_log()
{
	return log_.take();
}

} // namespace tarn
