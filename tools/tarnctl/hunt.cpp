// SPDX-License-Identifier: GPL-2.0-only
#include "hunt.h"

#include <charconv>
#include <string_view>

#include <fmt/format.h>
#include <uapi/tarn_memcheck.h>

namespace tarn
{

namespace
{

void command(memcheck_device &device, std::uint32_t cmd, const char *what)
{
	if (const int ret = device.command(MEMTYPE_SLUB, cmd))
		throw hunt_error(fmt::format("the module refused to {} (error {})", what, -ret));
}

// The module names its target when it is switched on: "slub name[filp] ok".
std::string parse_target(std::string_view log)
{
	constexpr std::string_view before = "slub name[";
	const std::size_t end = log.rfind("] ok");
	const std::size_t start = log.rfind(before, end);

	if (end == std::string_view::npos || start == std::string_view::npos)
		throw hunt_error(
			"tracking is on already, or the kernel log does not name the target");
	return std::string(log.substr(start + before.size(), end - start - before.size()));
}

// The module reports the target's growth on its last log line of a switch-off: "12+34=46kB".
growth parse_growth(std::string_view log)
{
	const std::size_t end = log.rfind("kB");

	if (end == std::string_view::npos)
		throw hunt_error("the kernel log has no growth line");
	const std::size_t blank = log.rfind(' ', end);
	const std::string_view line = log.substr(blank + 1, end - blank - 1);
	growth result;
	const char *at = line.data();
	const char *const last = line.data() + line.size();

	at = std::from_chars(at, last, result.start_kib).ptr;
	if (at == last || *at++ != '+')
		throw hunt_error("the kernel log's growth line is damaged");
	at = std::from_chars(at, last, result.delta_kib).ptr;
	if (at == last || *at++ != '=')
		throw hunt_error("the kernel log's growth line is damaged");
	std::from_chars(at, last, result.end_kib);
	return result;
}

} // namespace

hunt_result run_hunt(memcheck_device &device, const std::string &cache,
		     const std::function<void()> &let_run)
{
	hunt_result result;
	std::string text;

	device.set_target(cache);
	command(device, MEMCHECK_CMD_PREPARE, "choose a target");
	command(device, MEMCHECK_CMD_ON, "switch tracking on");
	result.log = device.take_log();
	result.cache = parse_target(result.log);
	let_run();
	result.log += device.take_log();
	command(device, MEMCHECK_CMD_OFF, "switch tracking off");

	const std::string off_log = device.take_log();

	result.target = parse_growth(off_log);
	if (const int ret = device.read(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE, text))
		throw hunt_error(fmt::format("the module refused the readout (error {})", -ret));
	result.callers = parse_readout(text);
	result.log += off_log + device.take_log();
	return result;
}

} // namespace tarn
