// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/service_outcome.h>

#include <fmt/format.h>

#include <tarnctl/device/services.h>

namespace tarn
{

service_outcome kill_outcome(ioctl_device &device, const std::string &measure,
			     std::uint64_t target_pages)
{
	const std::uint64_t pages = kill_processes(
		device, measure == "swapped" ? process_size::swapped : process_size::resident,
		target_pages);

	return {fmt::format("asked for {} {} pages, killed processes totalling {} pages",
			    target_pages, measure, pages),
		{{"measure", measure}, {"target_pages", target_pages}, {"killed_pages", pages}},
		pages == 0};
}

service_outcome reclaim_outcome(ioctl_device &device, std::uint64_t bytes)
{
	const std::uint64_t pages = reclaim(device, bytes);

	return {fmt::format("asked for {} bytes, reclaimed {} pages", bytes, pages),
		{{"bytes", bytes}, {"reclaimed_pages", pages}},
		pages == 0};
}

service_outcome drop_outcome(ioctl_device &device, const std::string &what)
{
	if (what != "pages")
		drop_slab(device);
	if (what != "slab")
		drop_page_cache(device);
	return {fmt::format("dropped: {}", what), {{"dropped", what}}};
}

service_outcome compact_outcome(ioctl_device &device)
{
	compact(device);
	return {"compacted", {{"compacted", true}}};
}

service_outcome watermark_outcome(ioctl_device &device, int zone_index, unsigned int order)
{
	const bool ok = watermark_ok(device, zone_index, order);

	return {fmt::format("zones up to {}, order {}: {}", zone_index, order,
			    ok ? "room" : "no room"),
		{{"zone", zone_index}, {"order", order}, {"room", ok}},
		!ok};
}

std::string outcome_text(const service_outcome &outcome, const memory_counts &before,
			 const memory_counts &after, shown_counts shown)
{
	return outcome.sentence + "\n" + change_text(before, after, shown);
}

std::string outcome_json(const service_outcome &outcome, const memory_counts &before,
			 const memory_counts &after, shown_counts shown)
{
	nlohmann::ordered_json object = outcome.members;

	object.update(change_json(before, after, shown));
	return object.dump(2) + "\n";
}

} // namespace tarn
