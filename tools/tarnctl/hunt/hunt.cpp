// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/hunt.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <string_view>

#include <fmt/format.h>
#include <uapi/tarn_memcheck.h>

#include <tarnctl/terminal/output.h>

namespace tarn
{

namespace
{

std::string refusal(const char *what, int ret)
{
	return fmt::format("the module refused to {} (error {})", what, -ret);
}

void command(hunt_backend &device, std::uint32_t cmd, const char *what)
{
	if (const int ret = device.command(MEMTYPE_SLUB, cmd))
		throw hunt_error(refusal(what, ret));
}

std::string destroyed(const std::string &cache)
{
	return fmt::format("the cache \"{}\" was destroyed while it was tracked", cache);
}

// The module names its target when it is switched on: "slub name[filp] ok".
std::string parse_target(std::string_view log)
{
	constexpr std::string_view before = "slub name[";
	const std::size_t end = log.rfind("] ok");
	const std::size_t start = log.rfind(before, end);

	if (end == std::string_view::npos || start == std::string_view::npos)
		throw hunt_error("the kernel log does not name the target");
	return std::string(log.substr(start + before.size(), end - start - before.size()));
}

// The module reports the target's growth on its last log line of a switch-off: "12+34=46kB".
growth parse_growth(std::string_view log, const std::string &cache)
{
	if (log.find("] was tracked") != std::string_view::npos)
		throw hunt_error("another program chose another target during the hunt");
	if (log.find("no target to measure") != std::string_view::npos)
		throw hunt_error(destroyed(cache));
	const std::size_t at = log.rfind("tarn_slub_track_off:");
	const std::string line(log.substr(std::min(at, log.size())));
	growth result;

	if (std::sscanf(line.c_str(),
			"tarn_slub_track_off:%*d: %" SCNu64 "+%" SCNd64 "=%" SCNu64 "kB",
			&result.start_kib, &result.delta_kib, &result.end_kib) != 3)
		throw hunt_error("the kernel log does not say how much the target grew");
	return result;
}

std::string read_out(hunt_backend &device)
{
	std::string text;

	if (const int ret = device.read(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE, text))
		throw hunt_error(refusal("read out", ret));
	return text;
}

// Tracking, switched on while it lives.
class tracking
{
public:
	tracking(hunt_backend &device, const std::string &cache) : device_(device)
	{
		const int ret = device_.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON);

		if (ret == -EINVAL && !cache.empty())
			throw unknown_cache(
				fmt::format("the module cannot track a cache \"{}\"", cache));
		if (ret)
			throw hunt_error(ret == -EINVAL
						 ? "the module finds no cache that it can track; "
						   "try to name one with --cache"
						 : refusal("switch tracking on", ret));
	}
	~tracking()
	{
		if (!on_)
			return;
		try {
			device_.command(MEMTYPE_SLUB, MEMCHECK_CMD_OFF);
		} catch (const std::exception &error) {
			// What ended the hunt is on its way up already.
			print_error(error.what());
		}
	}
	tracking(const tracking &) = delete;
	tracking &operator=(const tracking &) = delete;

	void off(const std::string &cache)
	{
		on_ = false;
		const int ret = device_.command(MEMTYPE_SLUB, MEMCHECK_CMD_OFF);

		if (ret)
			throw hunt_error(ret == -EINVAL ? destroyed(cache)
							: refusal("switch tracking off", ret));
	}

private:
	hunt_backend &device_;
	bool on_ = true;
};

} // namespace

hunt_result run_hunt(hunt_backend &device, const std::string &cache,
		     const std::function<void()> &let_run)
{
	hunt_result result;

	// The module keeps the first target when it is switched on twice, and would not tell.
	if (device.is_tracking())
		throw hunt_error("slab tracking is on already: another hunt is running, or one was "
				 "killed and slub_track_flag has to be cleared");
	device.set_target(cache);
	command(device, MEMCHECK_CMD_PREPARE, "choose a target");
	// What an earlier hunt left behind unread would count as this one's.
	read_out(device);

	tracking on(device, cache);

	result.log = device.take_log();
	result.cache = parse_target(result.log);
	if (!cache.empty() && result.cache != cache)
		throw unknown_cache(fmt::format("the kernel has no slab cache \"{}\" of its own; "
						"/proc/slabinfo lists them",
						cache));
	let_run();
	result.log += device.take_log();
	on.off(result.cache);

	const std::string off_log = device.take_log();

	result.target = parse_growth(off_log, result.cache);
	result.events = device.events();
	result.callers = parse_readout(read_out(device));
	result.log += off_log + device.take_log();
	return result;
}

} // namespace tarn
