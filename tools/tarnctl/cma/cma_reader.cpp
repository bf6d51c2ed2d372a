// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/cma/cma_reader.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <stop_token>
#include <system_error>
#include <thread>

#include <unistd.h>

#include <fmt/format.h>

#include <tarnctl/device/device_error.h>
#include <tarnctl/device/module_parameter.h>
#include <tarnctl/terminal/printable.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

constexpr int most_attempts = 5;

// Nothing if the file does not exist or does not hold a number.
template <typename number>
std::optional<number> read_number(const std::string &file)
{
	try {
		return parse_number<number>(read_kernel_file(file));
	} catch (const device_error &) {
		return std::nullopt;
	}
}

bool is_watched(const std::string &parameters, const std::string &name)
{
	try {
		return read_kernel_file(parameters + "/cma_target") == name;
	} catch (const device_error &) {
		return false;
	}
}

// Reads the file, which makes the module log the report on behalf of the calling thread.
std::optional<cma_report> request_report(const std::string &name, const std::string &show,
					 kernel_log log)
{
	cma_report_reader reader(name, gettid());
	const auto take_loss = [&log, &reader] {
		if (log.take_loss())
			reader.add_loss();
	};
	const auto take = [&reader, &take_loss](const log_record &record) {
		take_loss();
		reader.add(record);
	};
	// The report may be larger than the log, so it is read while it is written.
	std::packaged_task<void(std::stop_token)> follow(
		[&log, &take](const std::stop_token &stop) {
			while (!stop.stop_requested()) {
				if (const auto record = log.next())
					take(*record);
				else
					std::this_thread::sleep_for(std::chrono::milliseconds(1));
			}
		});
	std::future<void> followed = follow.get_future();
	std::jthread follower(std::move(follow));

	read_kernel_file(show);
	follower.request_stop();
	followed.get();
	log.drain(take);
	take_loss();
	return reader.result();
}

} // namespace

cma_reader::cma_reader(const std::string &root)
	: root_(root), areas_(root + "/sys/kernel/debug/tarn_cma"),
	  allocator_(root + "/sys/kernel/debug/cma"),
	  parameters_(root + "/sys/module/tarn_mem_adapter/parameters")
{
}

std::vector<std::string> cma_reader::names() const
{
	require_module(root_);
	std::error_code error;
	std::vector<std::string> names;

	for (auto at = std::filesystem::directory_iterator(areas_, error);
	     !error && at != std::filesystem::directory_iterator(); at.increment(error))
		names.push_back(at->path().filename().string());
	if (error)
		throw device_error(fmt::format("cannot read {}: {}", areas_, error.message()));
	std::ranges::sort(names);
	return names;
}

cma_area cma_reader::read(const std::string &name,
			  const std::function<kernel_log()> &open_log) const
{
	if (!std::ranges::count(names(), name))
		throw unknown_area(
			fmt::format("the kernel has no CMA area named {}", printable(name)));
	std::optional<cma_report> report;

	for (int i = 0; i < most_attempts && wants_another_attempt(report); i++) {
		auto next = request_report(name, areas_ + "/" + name + "/show", open_log());

		if (is_better(next, report))
			report = std::move(next);
	}
	if (!report)
		throw device_error(fmt::format(
			"the report on {} is not in the kernel log, or was overwritten there",
			printable(name)));
	cma_area area;

	area.report = std::move(*report);
	area.order = read_number<unsigned int>(allocator_ + "/" + name + "/order_per_bit");
	// An order that leaves no whole chunk cannot be right.
	if (area.order && (*area.order >= 32 || cma_units(area) == 0))
		area.order.reset();
	area.unrecorded = read_number<std::uint64_t>(parameters_ + "/cma_unrecorded");
	if (is_watched(parameters_, name))
		area.limit_permillage =
			read_number<std::int64_t>(parameters_ + "/cma_warn_limit_permillage");
	return area;
}

cma_areas cma_reader::read_all(const std::vector<std::string> &names,
			       const std::function<kernel_log()> &open_log) const
{
	cma_areas all;

	for (const std::string &name : names) {
		try {
			all.areas.push_back(read(name, open_log));
		} catch (const no_kernel_log &) {
			throw; // the next area would fare no better
		} catch (const device_error &error) {
			all.unreadable.push_back({name, error.what()});
		}
	}
	return all;
}

} // namespace tarn
