// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/cma/cma_report.h>

#include <tuple>

#include <fmt/format.h>

#include <tarnctl/device/module_line.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

constexpr std::string_view frame_indent = "        ";

bool take_range(std::string_view &text, std::uint64_t &first, std::uint64_t &last)
{
	return take_literal(text, "[") && take_number(text, first) && take_literal(text, "-") &&
	       take_number(text, last) && take_literal(text, "]");
}

// "area [first-last] count:pages"
std::optional<cma_record> parse_record(std::string_view text, std::string_view area)
{
	std::uint64_t count = 0;
	cma_record found;

	if (!take_literal(text, area) || !take_literal(text, " ") ||
	    !take_range(text, found.first_pfn, found.last_pfn) || !take_literal(text, " count:") ||
	    !take_number(text, count) || !text.empty() || found.first_pfn > found.last_pfn ||
	    count != found.pages())
		return std::nullopt;
	return found;
}

} // namespace

bool wants_another_attempt(const std::optional<cma_report> &report)
{
	return !report || (report->mixed && !report->lost);
}

bool is_better(const std::optional<cma_report> &report, const std::optional<cma_report> &than)
{
	const auto worth = [](const cma_report &r) {
		return std::tuple(!r.lost, !r.mixed, r.records.size());
	};

	return report && (!than || worth(*report) > worth(*than));
}

cma_report_reader::cma_report_reader(std::string area, pid_t task)
	: area_(std::move(area)), caller_(fmt::format("T{}", task))
{
}

void cma_report_reader::add(const log_record &record)
{
	if (!record.caller.empty() && record.caller != caller_)
		return;
	if (const auto summary = module_message(record, "show_brief"))
		add_summary(*summary);
	else if (const auto line = module_message(record, "show_info"); line && report_)
		add_listing(*line);
}

void cma_report_reader::add_summary(std::string_view message)
{
	cma_report report;

	// No pages were requested, so this is not the report on a failed allocation.
	if (!take_literal(message, area_ + " valid_pfn=") ||
	    !take_range(message, report.first_pfn, report.last_pfn) ||
	    !take_literal(message, " count:") || !take_number(message, report.pages) ||
	    !take_literal(message, " used:") || !take_number(message, report.used_bits) ||
	    message != " req:0 lasttry-pfn:0x0" ||
	    report.last_pfn - report.first_pfn + 1 != report.pages)
		return;
	if (report_) {
		report_->mixed = true;
		return;
	}
	report.name = area_;
	report_ = std::move(report);
}

void cma_report_reader::add_listing(std::string_view message)
{
	if (take_literal(message, frame_indent))
		add_frame(message);
	else
		add_range(message);
}

void cma_report_reader::add_frame(std::string_view frame)
{
	switch (frames_belong_to_) {
	case frame_owner::last_record:
		report_->records.back().frames.emplace_back(frame);
		break;
	case frame_owner::lost_line:
		break;
	case frame_owner::unknown:
		report_->mixed = true;
		break;
	}
}

void cma_report_reader::add_range(std::string_view message)
{
	const auto found = parse_record(message, area_);

	// A report lists each range of its area once, and in order.
	if (!found || !ranges_.emplace(found->first_pfn, found->last_pfn).second) {
		report_->mixed = true;
		frames_belong_to_ = frame_owner::unknown;
		return;
	}
	if (!report_->records.empty() && found->first_pfn < report_->records.back().first_pfn)
		report_->mixed = true;
	report_->records.push_back(*found);
	frames_belong_to_ = frame_owner::last_record;
}

void cma_report_reader::add_loss()
{
	if (!report_)
		return;
	report_->lost = true;
	frames_belong_to_ = frame_owner::lost_line;
}

} // namespace tarn
