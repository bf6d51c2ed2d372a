// SPDX-License-Identifier: GPL-2.0-only
#include "hunt_hosted.h"

#include <fmt/format.h>
#include <hosted/loader.h>
#include <hosted/log.h>
#include <hosted/machine.h>
#include <hosted/sysfs.h>
#include <platform/client.h>
#include <slub_track.h>

#include "progress_bar.h"
#include "replay.h"

namespace tarn
{

namespace
{

// The memcheck device of the hosted platform.
class hosted_device : public memcheck_device
{
public:
	explicit hosted_device(platform::client &client) : client_(client) {}

	// The module was loaded for this hunt alone.
	bool is_tracking() override
	{
		return false;
	}

	int command(std::uint32_t memtype, std::uint32_t cmd) override
	{
		return client_.command(memtype, cmd);
	}

	void set_target(const std::string &cache) override
	{
		if (cache.empty())
			return;
		if (hosted::write_file("/sys/module/tarn_mem_adapter/parameters/specified_target",
				       cache) < 0)
			throw hunt_error("the module does not take a target cache by name");
	}

	int read(std::uint32_t memtype, std::uint64_t size, std::string &text) override
	{
		platform::client::stacks stacks = client_.read_stacks(memtype, size);

		text = std::move(stacks.text);
		return stacks.status;
	}

	std::string take_log() override
	{
		std::string lines;

		for (const hosted::log_record &record : hosted::take_log()) {
			lines += record.text;
			if (!lines.ends_with('\n'))
				lines += '\n';
		}
		return lines;
	}

private:
	platform::client &client_;
};

// What a kind's ring has taken in since tracking was switched on: the module keeps the count.
std::uint64_t recorded(hosted::loaded_module &module, int kind) NO_THREAD_SAFETY_ANALYSIS
{
	const auto *rings = module.internal<slub_ringbuf>("srb_array");

	return rings[kind].in;
}

std::uint32_t find_cache(const trace::directory &directory, const std::string &name)
{
	const auto &caches = directory.caches();

	for (std::uint32_t i = 0; i < caches.size(); i++) {
		if (caches[i].name == name)
			return i;
	}
	throw unknown_cache(fmt::format("the trace has no events of a cache named \"{}\"", name));
}

} // namespace

bool can_hunt_traces()
{
	return true;
}

hunt_result hunt_trace(const std::string &path, const std::string &cache)
{
	const trace::directory directory = [&path] {
		progress_bar bar("reading the trace");

		return trace::directory(path, [&bar](std::uint64_t done, std::uint64_t total) {
			bar.update(done, total);
		});
	}();

	if (!cache.empty())
		find_cache(directory, cache);

	const hosted::machine machine;
	hosted::loaded_module module;

	if (module.status() < 0)
		throw hunt_error(
			fmt::format("the module does not load (error {})", -module.status()));
	platform::client client(module);
	const platform::client::results started = client.start();

	if (started.memtrack < 0)
		throw hunt_error(
			fmt::format("tracking does not start (error {})", -started.memtrack));

	replay trace(path, directory);
	std::vector<replay::counts> seen;
	const auto replay_all = [&trace, &seen](const char *what) {
		progress_bar bar(what);

		seen = trace.run([&bar](std::uint64_t done, std::uint64_t total) {
			bar.update(done, total);
		});
	};

	trace.allocate_existing();
	if (cache.empty()) {
		replay_all("filling the caches");
		trace.allocate_existing();
	}

	hosted_device device(client);
	hunt_result result =
		run_hunt(device, cache, [&replay_all] { replay_all("tracking the trace"); });

	const replay::counts &offered = seen[find_cache(directory, result.cache)];

	result.object_size = helper_kmem_cache_full_size(hosted::find_cache(result.cache));

	event_counts events;

	events.alloc = recorded(module, SLUB_ALLOC);
	events.free = recorded(module, SLUB_FREE);
	events.dropped = offered.alloc + offered.free - events.alloc - events.free;
	result.events = events;
	return result;
}

} // namespace tarn
