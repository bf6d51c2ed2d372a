// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/pins.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tarnctl/device/device_error.h>
#include <tarnctl/device/module_line.h>
#include <tarnctl/device/module_parameter.h>
#include <tarnctl/terminal/printable.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

using std::chrono::milliseconds;

constexpr std::int64_t second = 1'000'000; // in microseconds

// A pin is the kind of line that the kernel holds back until another begins. In a silent log we
// have to log that one. The longer nobody else logs, the less often we do so, to leave room for
// what others have to say.
constexpr milliseconds shortest_silence{500};
constexpr milliseconds longest_silence{32000};

class pin_follower
{
public:
	pin_follower(kernel_log &log, const follow_limits &limits, const follow_output &output)
		: log_(log), output_(output), run_(limits)
	{
	}

	bool follow()
	{
		while (!run_.is_complete()) {
			switch (run_.wait(log_.file(), silence_)) {
			case follow_event::readable:
				take_next();
				break;
			case follow_event::silence:
				log_.release_last_line();
				silence_ = std::min(2 * silence_, longest_silence);
				break;
			case follow_event::time_over:
				show_rest();
				return run_.is_satisfied();
			case follow_event::signal:
				show_rest();
				return true;
			}
		}
		return true;
	}

private:
	void take_next()
	{
		const auto record = log_.next();

		if (!record)
			return;
		if (record->by_kernel)
			silence_ = shortest_silence;
		show(*record);
	}

	void show(const log_record &record)
	{
		warn_of_loss();
		const auto pinned = parse_pin(record);

		if (!pinned || run_.is_complete())
			return;
		output_.line(output_.json ? pin_json(*pinned) : pin_text(*pinned));
		run_.count_shown();
		warned_ = false;
	}

	void show_rest()
	{
		log_.drain([this](const log_record &record) { show(record); });
		warn_of_loss();
	}

	void warn_of_loss()
	{
		if (log_.take_loss() && !std::exchange(warned_, true))
			output_.warn("the kernel log overran: pins may be missing");
	}

	kernel_log &log_;
	const follow_output &output_;
	follow_run run_;
	milliseconds silence_ = shortest_silence;
	bool warned_ = false; // since the last pin
};

} // namespace

void require_pin_tracking(const std::string &root)
{
	constexpr const char *probed[] = {"folio_add_pin", "try_grab_page", "try_grab_folio"};

	require_module(root);
	// Without debugfs there is no way to tell.
	std::ifstream file(root + "/sys/kernel/debug/kprobes/list");
	const std::string probes(std::istreambuf_iterator<char>(file), {});

	if (file && std::ranges::none_of(probed, [&probes](const char *function) {
		    return probes.find(function) != std::string::npos;
	    }))
		throw device_error("the module does not track pins: it could not place its probes, "
				   "and the kernel log says why (register_kprobe)");
}

// "task function [0xfirst-0xlast]"; the task's name may contain spaces and brackets.
std::optional<pin> parse_pin(const log_record &record)
{
	const auto message = module_message(record, "show_pinner");

	if (!message)
		return std::nullopt;
	const std::size_t range = message->rfind(" [0x");

	if (range == std::string::npos || range == 0)
		return std::nullopt;
	const std::size_t function = message->rfind(' ', range - 1);
	std::string_view numbers = std::string_view(*message).substr(range);
	pin result;

	if (function == std::string::npos || !take_literal(numbers, " [0x") ||
	    !take_number(numbers, result.first_pfn, 16) || !take_literal(numbers, "-0x") ||
	    !take_number(numbers, result.last_pfn, 16) || numbers != "]" ||
	    result.last_pfn < result.first_pfn)
		return std::nullopt;
	result.time = record.time;
	result.task = message->substr(0, function);
	result.function = message->substr(function + 1, range - function - 1);
	return result;
}

std::string pin_text(const pin &p)
{
	const std::uint64_t pages = p.last_pfn - p.first_pfn + 1;

	return fmt::format("[{:5}.{:06}] {} {} 0x{:x}-0x{:x} {} page{}", p.time.count() / second,
			   p.time.count() % second, printable(p.task), printable(p.function),
			   p.first_pfn, p.last_pfn, pages, pages == 1 ? "" : "s");
}

std::string pin_json(const pin &p)
{
	const nlohmann::ordered_json object = {
		{"time_us", p.time.count()}, {"task", p.task},
		{"function", p.function},    {"first_pfn", p.first_pfn},
		{"last_pfn", p.last_pfn},    {"pages", p.last_pfn - p.first_pfn + 1}};

	// A task's name need not be UTF-8.
	return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool follow_pins(kernel_log &log, const follow_limits &limits, const follow_output &output)
{
	return pin_follower(log, limits, output).follow();
}

} // namespace tarn
