// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/hunt_device.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <tarnctl/hunt/device_backend.h>
#include <tarnctl/terminal/progress_bar.h>
#include <tarnctl/terminal/stop_signals.h>

namespace tarn
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds between_readings{250};
constexpr std::chrono::seconds longest_observation{10};

class real_clock : public hunt_clock
{
public:
	explicit real_clock(stop_signals &signals) : signals_(signals) {}

	nanoseconds now() override
	{
		return clock::now() - start_;
	}
	bool wait(milliseconds time) override
	{
		return signals_.wait(time);
	}

private:
	using clock = std::chrono::steady_clock;

	stop_signals &signals_;
	clock::time_point start_ = clock::now();
};

// The hunt's phases. Whatever it waits for, it reads the slab figures meanwhile.
class hunter
{
public:
	hunter(hunt_clock &clock, device_hunt &hunt, nanoseconds end)
		: clock_(clock), hunt_(hunt), end_(end)
	{
	}

	time_span run_until(nanoseconds end)
	{
		const nanoseconds from = clock_.now();

		while (true) {
			const nanoseconds now = clock_.now();

			hunt_.slabs.sample(now);
			if (stopped_ || now >= end)
				return {from, now};
			bar_.update(static_cast<std::uint64_t>(now.count()),
				    static_cast<std::uint64_t>(end_.count()));
			stopped_ = clock_.wait(std::min(
				between_readings, std::chrono::ceil<milliseconds>(end - now)));
		}
	}

	// Observes, and returns the cache to track; an empty name leaves the choice to the module.
	std::string choose()
	{
		// Without figures there is nothing to observe.
		if (!hunt_.slabs.fault().empty())
			return "";
		hunt_.observed = run_until(std::min<nanoseconds>(end_ / 3, longest_observation));
		const sampled_cache *fastest = fastest_growing(hunt_.slabs, hunt_.observed);

		if (!fastest)
			return "";
		hunt_.choice = target_choice::fastest;
		return fastest->name;
	}

private:
	hunt_clock &clock_;
	device_hunt &hunt_;
	nanoseconds end_;
	bool stopped_ = false;
	progress_bar bar_{"hunting in the kernel"};
};

// A cache that the kernel has merged with an older one is known by that one's name only.
void refuse_merged(const slab_sampler &slabs, const std::string &cache)
{
	if (slabs.find(cache))
		return;
	for (const std::string &name : slabs.merged_with(cache)) {
		if (slabs.find(name))
			throw unknown_cache(
				fmt::format("the kernel has merged the cache \"{}\" with "
					    "\"{}\": hunt in that one, where both count",
					    cache, name));
	}
}

} // namespace

device_hunt run_device_hunt(hunt_backend &kernel, hunt_clock &clock, slab_sampler slabs,
			    const device_hunt_options &options)
{
	device_hunt hunt;

	hunt.slabs = std::move(slabs);
	hunter phases(clock, hunt, options.time);
	std::string cache = options.cache;

	// The first reading opens a file for each cache, which is not to count.
	hunt.slabs.sample(clock.now());
	refuse_merged(hunt.slabs, cache);
	if (!cache.empty())
		hunt.choice = target_choice::named;
	else if (!options.automatic)
		cache = phases.choose();
	hunt.result =
		run_hunt(kernel, cache, [&] { hunt.tracked = phases.run_until(options.time); });
	if (const sampled_cache *target = hunt.slabs.find(hunt.result.cache))
		hunt.result.object_size = target->object_size;
	hunt.merged = hunt.slabs.merged_with(hunt.result.cache);
	return hunt;
}

device_hunt hunt_device(const std::string &device, const device_hunt_options &options)
{
	// Until tracking is off again, no signal may end the process.
	stop_signals signals;
	ioctl_device_file control(device);
	kernel_log log;
	device_backend kernel(control, log);
	real_clock clock(signals);

	return run_device_hunt(kernel, clock, slab_sampler(), options);
}

} // namespace tarn
