// SPDX-License-Identifier: GPL-2.0-only
#include "cma_read.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "control_device.h"
#include "module_parameter.h"
#include "printable.h"

namespace tarn
{

namespace
{

using std::chrono::milliseconds;

constexpr int most_attempts = 5;

// Nothing where the file is not there or has no number.
template <typename number>
std::optional<number> read_number(const std::string &file)
{
	try {
		const std::string text = read_parameter(file);
		number value = 0;
		const auto [end, error] =
			std::from_chars(text.data(), text.data() + text.size(), value);

		if (error == std::errc{} && end == text.data() + text.size())
			return value;
	} catch (const device_error &) {
		// Then it is not known.
	}
	return std::nullopt;
}

bool is_watched(const std::string &parameters, const std::string &name)
{
	try {
		return read_parameter(parameters + "/cma_target") == name;
	} catch (const device_error &) {
		return false;
	}
}

std::optional<cma_report> have_reported(const std::string &name, const std::string &show,
					kernel_log log)
{
	cma_report_reader reader(name);
	const auto take_loss = [&log, &reader] {
		if (log.take_loss())
			reader.add_loss();
	};
	const auto take = [&reader, &take_loss](const log_record &record) {
		take_loss();
		reader.add(record);
	};
	// The report may be larger than the log, so it is taken while it is written.
	std::future<void> shown = std::async(std::launch::async, [&show] { read_parameter(show); });

	for (milliseconds pause{0}; shown.wait_for(pause) != std::future_status::ready;) {
		const auto record = log.next();

		if (record)
			take(*record);
		pause = milliseconds(record ? 0 : 1);
	}
	shown.get();
	log.drain(take);
	take_loss();
	return reader.result();
}

} // namespace

cma_files::cma_files(const std::string &root)
	: areas_(root + "/sys/kernel/debug/tarn_cma"), allocator_(root + "/sys/kernel/debug/cma"),
	  parameters_(root + "/sys/module/tarn_mem_adapter/parameters")
{
}

std::vector<std::string> cma_files::names() const
{
	std::error_code error;
	std::vector<std::string> names;

	for (auto at = std::filesystem::directory_iterator(areas_, error);
	     !error && at != std::filesystem::directory_iterator(); at.increment(error))
		names.push_back(at->path().filename().string());
	if (error)
		throw device_error(fmt::format("{} cannot be read: {}", areas_, error.message()));
	std::ranges::sort(names);
	return names;
}

cma_area cma_files::read(const std::string &name, const std::function<kernel_log()> &open_log) const
{
	if (!std::ranges::count(names(), name))
		throw unknown_area(
			fmt::format("the kernel has no CMA area named {}", printable(name)));
	std::optional<cma_report> report;

	for (int i = 0; i < most_attempts && (!report || report->lost || report->mixed); i++) {
		if (auto next = have_reported(name, areas_ + "/" + name + "/show", open_log()))
			report = std::move(next);
	}
	if (!report)
		throw device_error(fmt::format(
			"the report about {} is not in the kernel log, or was overwritten there",
			printable(name)));
	cma_area area;

	area.report = std::move(*report);
	area.order = read_number<unsigned int>(allocator_ + "/" + name + "/order_per_bit");
	// One that leaves no whole chunk is none.
	if (area.order && (*area.order >= 32 || cma_units(area) == 0))
		area.order.reset();
	if (is_watched(parameters_, name))
		area.limit_permillage =
			read_number<std::int64_t>(parameters_ + "/cma_warn_limit_permillage");
	return area;
}

} // namespace tarn
