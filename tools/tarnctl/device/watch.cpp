// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/watch.h>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tarn
{

namespace
{

// UTC, "2024-05-01T12:00:00.000Z".
std::string time_now()
{
	using std::chrono::milliseconds;
	const auto now = std::chrono::floor<milliseconds>(std::chrono::system_clock::now());

	return fmt::format("{:%FT%T}.{:03}Z",
			   fmt::gmtime(std::chrono::system_clock::to_time_t(now)),
			   now.time_since_epoch().count() % 1000);
}

std::string registered_line(std::uint32_t port, bool json)
{
	if (json)
		return nlohmann::ordered_json{{"registered", true}, {"port", port}}.dump();
	return fmt::format("registered for lmkd notifications at netlink port {}", port);
}

std::string notification_line(const notification &n, bool json)
{
	const char *name = notification_name(n.value);

	if (!json)
		return fmt::format("{} {} {} seq {}", time_now(), n.value, name ? name : "unknown",
				   n.sequence);
	nlohmann::ordered_json object = {{"time", time_now()}, {"value", n.value}};

	if (name)
		object["name"] = name;
	object["seq"] = n.sequence;
	return object.dump();
}

void show_next(lmkd_channel &channel, follow_run &run, const follow_output &output)
{
	try {
		if (const auto notified = channel.receive()) {
			output.line(notification_line(*notified, output.json));
			run.count_shown();
		}
	} catch (const notifications_lost &error) {
		output.warn(error.what());
	}
}

} // namespace

bool watch(lmkd_channel &channel, const follow_limits &limits, const follow_output &output)
{
	follow_run run(limits);

	channel.register_port();
	output.line(registered_line(channel.port(), output.json));
	while (!run.is_complete()) {
		switch (run.wait(channel.socket())) {
		case follow_event::readable:
			show_next(channel, run, output);
			break;
		case follow_event::silence:
			break;
		case follow_event::time_over:
			return run.is_satisfied();
		case follow_event::signal:
			return true;
		}
	}
	return true;
}

} // namespace tarn
