// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/hunt_hosted.h>

#include <fmt/format.h>
#include <hosted/engine/loader.h>
#include <hosted/engine/log.h>
#include <hosted/engine/machine.h>
#include <hosted/sysfs.h>
#include <platform/hosted/client.h>

#include <tarnctl/hunt/replay.h>
#include <tarnctl/terminal/progress_bar.h>

namespace tarn
{

namespace
{

// The memcheck device of the hosted platform.
class hosted_device : public hunt_backend
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
		if (hosted::write_file(parameters + "specified_target", cache) < 0)
			throw hunt_error("the module does not take a target cache by name");
	}

	int read(std::uint32_t memtype, std::uint64_t size, std::string &text) override
	{
		platform::client::stacks stacks = client_.read_stacks(memtype, size);

		text = std::move(stacks.text);
		return stacks.status;
	}

	std::optional<event_counts> events() override
	{
		return read_event_counts([](const std::string &name) {
			std::string text;

			hosted::read_file(parameters + name, text);
			return text;
		});
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
	inline static const std::string parameters = "/sys/module/tarn_mem_adapter/parameters/";

	platform::client &client_;
};

// The module on a kernel of its own, with the tracker started.
class hosted_module
{
public:
	hosted_module() : client_(module_)
	{
		if (module_.status() < 0)
			throw hunt_error(fmt::format("the module does not load (error {})",
						     -module_.status()));
		const platform::client::results started = client_.start();

		if (started.memtrack < 0)
			throw hunt_error(fmt::format("tracking does not start (error {})",
						     -started.memtrack));
	}

	platform::client &client()
	{
		return client_;
	}

private:
	const hosted::machine machine_;
	hosted::loaded_module module_;
	platform::client client_;
};

void play(replay &trace, const char *what)
{
	progress_bar bar(what);

	trace.allocate_existing();
	trace.run([&bar](std::uint64_t done, std::uint64_t total) { bar.update(done, total); });
}

} // namespace

hunt_result hunt_trace(const trace::trace_path &path, const trace::cache_index &index,
		       const std::string &cache)
{
	hosted_module module;
	hosted_device device(module.client());
	replay trace(path, index);

	if (!cache.empty() && index.find(cache) == trace::none)
		throw unknown_cache(
			fmt::format("the trace has no events of a cache named \"{}\"", cache));
	if (cache.empty())
		play(trace, "filling the caches");
	trace.allocate_existing();

	hunt_result result = run_hunt(device, cache, [&] { play(trace, "tracking the trace"); });

	result.object_size = helper_kmem_cache_full_size(hosted::find_cache(result.cache));
	return result;
}

} // namespace tarn
