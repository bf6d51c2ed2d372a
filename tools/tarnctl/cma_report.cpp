// SPDX-License-Identifier: GPL-2.0-only
#include "cma_report.h"

#include "module_line.h"

namespace tarn
{

namespace
{

constexpr std::string_view frame_indent = "        ";

bool take_range(std::string_view &text, std::uint64_t &first, std::uint64_t &last)
{
	return take_literal(text, "[") && take_number(text, first) && take_literal(text, "-") &&
	       take_number(text, last) && take_literal(text, "]") && first <= last;
}

} // namespace

void cma_report_reader::add(const log_record &record)
{
	// Where the kernel tells who logged a line, those of others are no trouble.
	if (report_ && record.caller != caller_)
		return;
	if (const auto summary = module_message(record, "show_brief"))
		add_summary(*summary, record.caller);
	else if (const auto line = module_message(record, "show_info"); line && report_)
		add_listing(*line);
}

void cma_report_reader::add_summary(std::string_view message, const std::string &caller)
{
	cma_report report;

	// No pages asked for: no allocation failed.
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
	caller_ = caller;
	report_ = std::move(report);
}

void cma_report_reader::add_listing(std::string_view message)
{
	std::uint64_t count = 0;
	cma_record found;

	if (take_literal(message, frame_indent)) {
		if (has_owner_)
			report_->records.back().frames.emplace_back(message);
		else if (!after_loss_)
			report_->mixed = true;
		return;
	}
	has_owner_ = take_literal(message, area_ + " ") &&
		     take_range(message, found.first_pfn, found.last_pfn) &&
		     take_literal(message, " count:") && take_number(message, count) &&
		     message.empty() && count == found.pages() &&
		     ranges_.emplace(found.first_pfn, found.last_pfn).second;
	after_loss_ = false;
	// A report lists each range of its area once, and in order.
	if (!has_owner_ ||
	    (!report_->records.empty() && found.first_pfn < report_->records.back().first_pfn))
		report_->mixed = true;
	if (has_owner_)
		report_->records.push_back(std::move(found));
}

void cma_report_reader::add_loss()
{
	if (!report_)
		return;
	report_->lost = true;
	// The line of the record that the next frames belong to may be gone.
	after_loss_ = true;
	has_owner_ = false;
}

} // namespace tarn
