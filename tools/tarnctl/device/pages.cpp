// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/pages.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tarn
{

namespace
{

struct page_count {
	const char *name;
	std::uint64_t tarn_page_counts::*field;
};

constexpr page_count all[] = {
	{"total_reserve", &tarn_page_counts::total_reserve},
	{"free", &tarn_page_counts::free},
	{"file", &tarn_page_counts::file},
	{"anon", &tarn_page_counts::anon},
	{"zram", &tarn_page_counts::zram},
	{"zram_watermark", &tarn_page_counts::zram_watermark},
};

} // namespace

tarn_page_counts get_pages(ioctl_device &device)
{
	tarn_page_counts counts = {};

	if (const int ret = device.call(TARN_IOC_GET_PAGES, &counts))
		throw device_error(
			fmt::format("cannot read the page counts: {}", errno_message(-ret)));
	return counts;
}

std::string pages_text(const tarn_page_counts &counts)
{
	std::string text;

	for (const page_count &count : all)
		text += fmt::format("{} {}\n", count.name, counts.*count.field);
	return text;
}

std::string pages_json(const tarn_page_counts &counts)
{
	nlohmann::ordered_json object;

	for (const page_count &count : all)
		object[count.name] = counts.*count.field;
	return object.dump(2) + "\n";
}

} // namespace tarn
