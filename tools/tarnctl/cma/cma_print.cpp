// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/cma/cma_print.h>

#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tarnctl/terminal/printable.h>

namespace tarn
{

namespace
{

std::string plural(std::uint64_t count, const char *what)
{
	return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string kib(std::uint64_t pages, std::uint64_t page_size)
{
	return fmt::format("{} KiB", pages * page_size / 1024);
}

// 0 also if that is unknown.
std::uint64_t untracked_pages(const cma_area &area)
{
	return cma_untracked_chunks(area).value_or(0) << area.order.value_or(0);
}

void print_usage(fmt::memory_buffer &out, const cma_area &area)
{
	auto to = std::back_inserter(out);
	const cma_report &report = area.report;

	if (!area.order) {
		fmt::format_to(to,
			       "  used     {} of the allocation bitmap; pages per bit unknown\n",
			       plural(report.used_bits, "bit"));
	} else {
		const std::uint64_t used = report.used_bits << *area.order;

		fmt::format_to(to, "  used     {}, {:.1f} %", plural(used, "page"),
			       100.0 * static_cast<double>(used) /
				       static_cast<double>(report.pages));
		if (*area.order != 0)
			fmt::format_to(to, " ({} of {} pages)", plural(report.used_bits, "bit"),
				       1U << *area.order);
		fmt::format_to(to, "\n");
	}
}

// Why used memory may have no record.
std::string untracked_reason(const cma_area &area)
{
	if (!area.unrecorded)
		return "";
	if (*area.unrecorded == 0)
		return ": allocated before the module was loaded";
	return fmt::format(": allocated before the module was loaded,\n           or among the {} "
			   "in all areas that it had no memory to record",
			   plural(*area.unrecorded, "range"));
}

void print_tracked(fmt::memory_buffer &out, const cma_area &area)
{
	auto to = std::back_inserter(out);
	const cma_report &report = area.report;
	const std::uint64_t covered = cma_coverage(area).total() << area.order.value_or(0);

	if (report.lost && report.records.empty()) {
		fmt::format_to(to, "  tracked  unknown\n");
		return;
	}
	fmt::format_to(to, "  tracked  {}{} in {}", report.lost ? "at least " : "",
		       plural(covered, "page"), plural(report.records.size(), "range"));
	if (const std::uint64_t untracked = untracked_pages(area))
		fmt::format_to(to, "; {} used but not tracked{}", plural(untracked, "page"),
			       untracked_reason(area));
	else if (area.order && !report.lost && covered > report.used_bits << *area.order)
		fmt::format_to(to, "; more than used: some were released meanwhile, or in part");
	fmt::format_to(to, "\n");
}

void print_limit(fmt::memory_buffer &out, const cma_area &area)
{
	auto to = std::back_inserter(out);

	if (!area.limit_permillage)
		return;
	fmt::format_to(to, "  limit    {}/1024: ", *area.limit_permillage);
	const auto limit = cma_limit_chunks(area);

	if (!limit)
		fmt::format_to(to, "unknown in pages\n");
	else if (*limit >= cma_units(area))
		fmt::format_to(to, "never reached\n");
	else
		fmt::format_to(to, "the kernel warns above {}; {}\n",
			       plural(*limit << *area.order, "used page"),
			       area.report.used_bits > *limit ? "more are used now"
							      : "no more are used now");
}

struct cell_meaning {
	char cell;
	const char *meaning;
};

constexpr cell_meaning legend[] = {
	{cma_cell::free, "free"},
	{cma_cell::owned, "tracked"},
	{cma_cell::partly, "partly tracked"},
	{cma_cell::untracked, "used but not tracked"},
	{cma_cell::unknown, "not tracked, may be used"},
};

void print_map(fmt::memory_buffer &out, const cma_area &area, std::uint64_t page_size)
{
	constexpr std::size_t columns = 64;
	auto to = std::back_inserter(out);
	const cma_map map = draw_cma_map(area);
	const std::size_t digits = fmt::formatted_size("{}", area.report.last_pfn);

	fmt::format_to(to, "\n  a character stands for {} ({})", plural(map.cell_pages, "page"),
		       kib(map.cell_pages, page_size));
	for (const cell_meaning &l : legend) {
		if (map.cells.find(l.cell) == std::string::npos)
			continue;
		fmt::format_to(to, "; {} {}", l.cell, l.meaning);
		if (l.cell == cma_cell::free && untracked_pages(area) != 0)
			fmt::format_to(to, ", except {} in unknown places",
				       plural(untracked_pages(area), "page"));
	}
	fmt::format_to(to, "\n");
	for (std::size_t at = 0; at < map.cells.size(); at += columns)
		fmt::format_to(to, "  {:>{}}  {}\n", area.report.first_pfn + at * map.cell_pages,
			       digits, map.cells.substr(at, columns));
}

void print_owners(fmt::memory_buffer &out, const cma_report &report)
{
	auto to = std::back_inserter(out);

	if (report.records.empty()) {
		if (!report.lost)
			fmt::format_to(to, "\n  No range is tracked.\n");
		return;
	}
	fmt::format_to(to, "\n  Who allocated, most pages first:\n");
	for (const cma_owner &owner : cma_owners(report)) {
		fmt::format_to(to, "\n{:>12} in {}\n", plural(owner.pages, "page"),
			       plural(owner.ranges, "range"));
		if (owner.frames.empty())
			fmt::format_to(to, "{:>12}(no call stack was saved)\n", "");
		for (const std::string &frame : owner.frames)
			fmt::format_to(to, "{:>12}{}\n", "", printable(frame));
	}
}

nlohmann::ordered_json to_json(const cma_area &area)
{
	const cma_report &report = area.report;
	nlohmann::ordered_json object = {{"name", report.name},
					 {"first_pfn", report.first_pfn},
					 {"last_pfn", report.last_pfn},
					 {"pages", report.pages},
					 {"used_bits", report.used_bits}};

	if (area.order) {
		object["order_per_bit"] = *area.order;
		object["used_pages"] = report.used_bits << *area.order;
	}
	if (const auto untracked = cma_untracked_chunks(area))
		object["untracked_pages"] = *untracked << area.order.value_or(0);
	if (area.unrecorded)
		object["unrecorded_ranges"] = *area.unrecorded;
	if (area.limit_permillage)
		object["limit"] = {{"permillage", *area.limit_permillage}};
	if (const auto limit = cma_limit_chunks(area))
		object["limit"]["bits"] = *limit;
	object["lost"] = report.lost;
	object["mixed"] = report.mixed;
	auto &records = object["records"] = nlohmann::ordered_json::array();

	for (const cma_record &record : report.records)
		records.push_back({{"first_pfn", record.first_pfn},
				   {"last_pfn", record.last_pfn},
				   {"pages", record.pages()},
				   {"frames", record.frames}});
	return object;
}

} // namespace

std::string cma_text(const cma_area &area, std::uint64_t page_size)
{
	const cma_report &report = area.report;
	fmt::memory_buffer out;
	auto to = std::back_inserter(out);

	fmt::format_to(to, "CMA area {}\n", printable(report.name));
	if (report.pages == 0) {
		fmt::format_to(to, "  not available: the kernel could not activate it\n");
		return fmt::to_string(out);
	}
	fmt::format_to(to, "  range    pfn {} to {}: {}, {}\n", report.first_pfn, report.last_pfn,
		       plural(report.pages, "page"), kib(report.pages, page_size));
	print_usage(out, area);
	print_tracked(out, area);
	print_limit(out, area);
	if (report.lost)
		fmt::format_to(to, "  The listing outgrew the kernel log: ranges and frames are "
				   "missing. A larger log\n  holds more (log_buf_len=8M on the "
				   "kernel's command line).\n");
	if (report.mixed)
		fmt::format_to(to,
			       "  Other reports were logged at the same time: frames may be listed "
			       "under the wrong range.\n");
	print_map(out, area, page_size);
	print_owners(out, report);
	return fmt::to_string(out);
}

std::string cma_json(const cma_areas &all)
{
	nlohmann::ordered_json object;
	auto &areas = object["areas"] = nlohmann::ordered_json::array();

	for (const cma_area &area : all.areas)
		areas.push_back(to_json(area));
	auto &unreadable = object["unreadable"] = nlohmann::ordered_json::array();

	for (const unreadable_cma_area &area : all.unreadable)
		unreadable.push_back({{"name", area.name}, {"reason", area.reason}});
	return object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace tarn
