// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/thresholds.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <uapi/tarn_device.h>

#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

struct threshold {
	std::string_view name;
	std::uint32_t selector;
	std::uint32_t memcheck_threshold::*field;
};

constexpr std::array<threshold, 4> all = {{
	{"slab_k", TH_SLAB_K, &memcheck_threshold::slab_k},
	{"vmalloc_k", TH_VMALLOC_K, &memcheck_threshold::vmalloc_k},
	{"slab_leak_k", TH_SLAB_LEAK_K, &memcheck_threshold::slab_leak_k},
	{"vmalloc_leak_k", TH_VMALLOC_LEAK_K, &memcheck_threshold::vmalloc_leak_k},
}};

std::uint32_t parse_kib(std::string_view text, const std::string &setting)
{
	const auto value = parse_number<std::uint32_t>(text);

	if (!value)
		throw std::invalid_argument(fmt::format(
			"{}: expected a whole number of KiB from 0 to {}", setting, UINT32_MAX));
	return *value;
}

void call(ioctl_device &device, unsigned long request, memcheck_threshold &thresholds,
	  const char *what)
{
	if (const int ret = device.call(request, &thresholds))
		throw device_error(
			fmt::format("cannot {} the thresholds: {}", what, errno_message(-ret)));
}

} // namespace

memcheck_threshold parse_thresholds(const std::vector<std::string> &settings)
{
	memcheck_threshold result = {};

	for (const std::string &setting : settings) {
		const std::string_view text = setting;
		const std::size_t equals = text.find('=');
		const auto found = std::ranges::find(all, text.substr(0, equals), &threshold::name);

		if (equals == std::string_view::npos || found == all.end())
			throw std::invalid_argument(fmt::format(
				"{}: expected NAME=KIB; the names are slab_k, vmalloc_k, "
				"slab_leak_k and vmalloc_leak_k",
				setting));
		if (result.mask & found->selector)
			throw std::invalid_argument(
				fmt::format("{}: {} is set twice", setting, found->name));
		result.mask |= found->selector;
		result.*found->field = parse_kib(text.substr(equals + 1), setting);
	}
	return result;
}

void set_thresholds(ioctl_device &device, memcheck_threshold thresholds)
{
	call(device, TARN_IOC_SET_THRESHOLDS, thresholds, "set");
}

memcheck_threshold get_thresholds(ioctl_device &device)
{
	memcheck_threshold thresholds = {};

	for (const threshold &t : all)
		thresholds.mask |= t.selector;
	call(device, TARN_IOC_GET_THRESHOLDS, thresholds, "read");
	return thresholds;
}

std::string thresholds_text(const memcheck_threshold &thresholds)
{
	std::string text;

	for (const threshold &t : all)
		text += fmt::format("{} {} kB\n", t.name, thresholds.*t.field);
	return text;
}

std::string thresholds_json(const memcheck_threshold &thresholds)
{
	nlohmann::ordered_json object;

	for (const threshold &t : all)
		object[std::string(t.name)] = thresholds.*t.field;
	return object.dump(2) + "\n";
}

} // namespace tarn
