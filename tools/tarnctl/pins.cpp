// SPDX-License-Identifier: GPL-2.0-only
#include "pins.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "module_line.h"
#include "printable.h"
#include "stop_signals.h"

namespace tarn
{

namespace
{

using milliseconds = std::chrono::milliseconds;

constexpr std::int64_t second = 1'000'000; // in microseconds

// A pin is the kind of line that is held back until another begins. In a silent log we have to log
// that one, and the longer nobody else logs the less often, to leave room for what others have to
// say.
constexpr milliseconds shortest_silence{500};
constexpr milliseconds longest_silence{32000};

} // namespace

// "task function [0xfirst-0xlast]", where the task's name may hold blanks and brackets.
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

	// A task name need not be UTF-8.
	return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool follow_pins(kernel_log &log, const follow_limits &limits, const follow_output &output)
{
	using clock = std::chrono::steady_clock;
	stop_signals signals;
	const clock::time_point end = clock::now() + limits.time.value_or(std::chrono::seconds(0));
	std::uint64_t seen = 0;
	bool warned = false; // since the last pin
	milliseconds silence = shortest_silence;
	const auto enough = [&] {
		return limits.count && seen >= *limits.count;
	};
	const auto warn = [&] {
		if (log.take_loss() && !std::exchange(warned, true))
			output.warn("the kernel log ran over: pins may be missing");
	};
	const auto show = [&](const log_record &record) {
		warn();
		const auto pinned = parse_pin(record);

		if (pinned && !enough()) {
			output.line(output.json ? pin_json(*pinned) : pin_text(*pinned));
			seen++;
			warned = false;
		}
	};
	const auto show_rest = [&] {
		log.drain(show);
		warn();
	};

	while (!enough()) {
		const clock::duration left = end - clock::now();
		bool readable = false;

		if (limits.time && left <= clock::duration::zero()) {
			show_rest();
			return !limits.count || enough();
		}
		const milliseconds patience =
			limits.time ? std::min(silence, std::chrono::ceil<milliseconds>(left))
				    : silence;

		if (signals.wait(patience, log.file(), readable)) {
			show_rest();
			return true;
		}
		if (!readable) {
			log.release_last_line();
			silence = std::min(2 * silence, longest_silence);
		} else if (const auto record = log.next()) {
			if (record->by_kernel)
				silence = shortest_silence;
			show(*record);
		}
	}
	return true;
}

} // namespace tarn
