// SPDX-License-Identifier: GPL-2.0-only
#include "hunt.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <string_view>

#include <fmt/format.h>
#include <uapi/tarn_memcheck.h>

namespace tarn
{

namespace
{

std::string refusal(const char *what, int ret)
{
	return fmt::format("the module refused to {} (error {})", what, -ret);
}

void command(memcheck_device &device, std::uint32_t cmd, const char *what)
{
	if (const int ret = device.command(MEMTYPE_SLUB, cmd))
		throw hunt_error(refusal(what, ret));
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
	const std::size_t at = log.rfind("tarn_slub_track_off:");
	const std::string line(log.substr(std::min(at, log.size())));
	growth result;

	if (std::sscanf(line.c_str(),
			"tarn_slub_track_off:%*d: %" SCNu64 "+%" SCNd64 "=%" SCNu64 "kB",
			&result.start_kib, &result.delta_kib, &result.end_kib) != 3)
		throw hunt_error("the kernel log does not say how much the target grew");
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
	if (const int ret = device.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON))
		throw hunt_error(ret == -EINVAL ? "the module finds no cache that it can track; "
						  "try to name one with --cache"
						: refusal("switch tracking on", ret));
	result.log = device.take_log();
	result.cache = parse_target(result.log);
	let_run();
	result.log += device.take_log();
	command(device, MEMCHECK_CMD_OFF, "switch tracking off");

	const std::string off_log = device.take_log();

	result.target = parse_growth(off_log);
	if (const int ret = device.read(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE, text))
		throw hunt_error(refusal("read out", ret));
	result.callers = parse_readout(text);
	result.log += off_log + device.take_log();
	return result;
}

} // namespace tarn
