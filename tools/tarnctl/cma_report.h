// SPDX-License-Identifier: GPL-2.0-only
// The report about a CMA area in the kernel log, taken apart: a summary line, and a line for each
// tracked range with the frames of who allocated it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kernel_log.h"

namespace tarn
{

struct cma_record {
	std::uint64_t first_pfn = 0;
	std::uint64_t last_pfn = 0;
	std::vector<std::string> frames; // innermost first; none if no stack was saved

	[[nodiscard]] std::uint64_t pages() const
	{
		return last_pfn - first_pfn + 1;
	}
};

struct cma_report {
	std::string name;
	std::uint64_t first_pfn = 0;
	std::uint64_t last_pfn = 0;
	std::uint64_t pages = 0;
	std::uint64_t used_bits = 0; // of the allocation bitmap
	std::vector<cma_record> records;
	bool lost = false;  // lines of the log are missing
	bool mixed = false; // another report stands between its lines: frames may be wrong
};

// Takes the records of the log from before the report to behind it, and finds the report that a
// reader of the area's file caused, not one that a failed allocation did.
class cma_report_reader
{
public:
	explicit cma_report_reader(std::string area) : area_(std::move(area)) {}

	void add(const log_record &record);
	// Between the records before and after, others were overwritten.
	void add_loss();
	// Nothing if there was no report.
	[[nodiscard]] const std::optional<cma_report> &result() const
	{
		return report_;
	}

private:
	void add_summary(std::string_view message, const std::string &caller);
	void add_listing(std::string_view message);

	std::string area_;
	std::optional<cma_report> report_;
	std::string caller_;
	bool has_owner_ = false; // the last record, of the frames that come
	bool after_loss_ = false;
	std::set<std::pair<std::uint64_t, std::uint64_t>> ranges_;
};

} // namespace tarn
