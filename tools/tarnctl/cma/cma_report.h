// SPDX-License-Identifier: GPL-2.0-only
// The report on a CMA area in the kernel log: a summary line, then for each tracked range a line
// and the frames of the stack that allocated it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>

#include <tarnctl/device/kernel_log.h>

namespace tarn
{

struct cma_record {
	std::uint64_t first_pfn = 0;
	std::uint64_t last_pfn = 0;
	std::vector<std::string> frames; // innermost first; empty if no stack was saved

	[[nodiscard]] std::uint64_t pages() const
	{
		return last_pfn - first_pfn + 1;
	}
};

struct cma_report {
	std::string name;
	std::uint64_t first_pfn = 0;
	std::uint64_t last_pfn = 0;  // first_pfn - 1 for an area without pages
	std::uint64_t pages = 0;     // 0 if the kernel could not activate the area
	std::uint64_t used_bits = 0; // of the allocation bitmap
	std::vector<cma_record> records;
	bool lost = false;  // lines of the log are missing
	bool mixed = false; // lines of another report are between its own: frames may be wrong
};

// Another attempt may only mend a report that was not found or was mixed with others. One that lost
// lines outgrew the log and would do so again.
bool wants_another_attempt(const std::optional<cma_report> &report);
bool is_better(const std::optional<cma_report> &report, const std::optional<cma_report> &than);

// Finds the report that a read of the area's file caused, not one on a failed allocation. Takes the
// log's records from before the report to after it.
class cma_report_reader
{
public:
	// The task is the one that read the file. Where the log names callers, reports of others
	// are passed over.
	cma_report_reader(std::string area, pid_t task);

	void add(const log_record &record);
	// Between the records before and after this call, others were overwritten.
	void add_loss();
	// Nothing if no report was found.
	[[nodiscard]] const std::optional<cma_report> &result() const
	{
		return report_;
	}

private:
	void add_summary(std::string_view message);
	void add_listing(std::string_view message);
	void add_frame(std::string_view frame);
	void add_range(std::string_view message);

	// Whose frames come next.
	enum class frame_owner {
		last_record,
		lost_line, // perhaps: lines were overwritten
		unknown,   // another report's, or nobody's
	};

	std::string area_;
	std::optional<cma_report> report_;
	std::string caller_; // as the log names it
	frame_owner frames_belong_to_ = frame_owner::unknown;
	std::set<std::pair<std::uint64_t, std::uint64_t>> ranges_;
};

} // namespace tarn
