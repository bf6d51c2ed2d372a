// SPDX-License-Identifier: GPL-2.0-only
#include "hunt_device.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "kernel_device.h"
#include "progress_bar.h"
#include "stop_signals.h"

namespace tarn
{

namespace
{

void let_run(stop_signals &signals, std::chrono::seconds time)
{
	using clock = std::chrono::steady_clock;
	using milliseconds = std::chrono::milliseconds;
	constexpr milliseconds step{100};
	const clock::time_point end = clock::now() + time;
	const milliseconds total = time;
	progress_bar bar("tracking the kernel");

	while (true) {
		const milliseconds left = std::chrono::ceil<milliseconds>(end - clock::now());

		if (left.count() <= 0 || signals.wait(std::min(step, left)))
			return;
		bar.update(static_cast<std::uint64_t>((total - left).count()),
			   static_cast<std::uint64_t>(total.count()));
	}
}

std::string read_slabinfo()
{
	std::ifstream file("/proc/slabinfo");

	return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

std::optional<std::uint32_t> listed_object_size(const std::string &slabinfo,
						const std::string &cache)
{
	std::istringstream lines(slabinfo);
	std::string line;

	while (std::getline(lines, line)) {
		if (!line.starts_with(cache + " "))
			continue;
		// Behind the name: active objects, objects, bytes an object.
		std::istringstream numbers(line.substr(cache.size()));
		std::uint64_t objects = 0;
		std::uint32_t size = 0;

		if (numbers >> objects >> objects >> size)
			return size;
	}
	return std::nullopt;
}

hunt_result hunt_device(const std::string &device, const std::string &cache,
			std::chrono::seconds time)
{
	// Held until tracking is off again.
	stop_signals signals;
	control_device_file control(device);
	kernel_log log;
	kernel_device kernel(control, log);
	hunt_result result = run_hunt(kernel, cache, [&signals, time] { let_run(signals, time); });

	result.object_size = listed_object_size(read_slabinfo(), result.cache);
	return result;
}

} // namespace tarn
