// SPDX-License-Identifier: GPL-2.0-only
#include "watch.h"

#include <ctime>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "stop_signals.h"

namespace tarn
{

namespace
{

using milliseconds = std::chrono::milliseconds;

// UTC, "2024-05-01T12:00:00.000Z".
std::string time_now()
{
	const auto now = std::chrono::floor<milliseconds>(std::chrono::system_clock::now());
	const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
	std::tm utc = {};

	gmtime_r(&seconds, &utc);
	return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", utc.tm_year + 1900,
			   utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
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

} // namespace

bool watch(lmkd_channel &channel, const follow_limits &limits, const follow_output &output)
{
	using clock = std::chrono::steady_clock;
	constexpr milliseconds forever{-1};
	stop_signals signals;
	const clock::time_point end = clock::now() + limits.time.value_or(std::chrono::seconds(0));
	std::uint64_t seen = 0;

	channel.register_port();
	output.line(registered_line(channel.port(), output.json));
	while (!limits.count || seen < *limits.count) {
		const clock::duration left = end - clock::now();
		bool readable = false;

		if (limits.time && left <= clock::duration::zero())
			return !limits.count;
		if (signals.wait(limits.time ? std::chrono::ceil<milliseconds>(left) : forever,
				 channel.socket(), readable))
			return true;
		if (!readable)
			continue;
		try {
			if (const auto notified = channel.receive()) {
				output.line(notification_line(*notified, output.json));
				seen++;
			}
		} catch (const notifications_lost &error) {
			output.warn(error.what());
		}
	}
	return true;
}

} // namespace tarn
