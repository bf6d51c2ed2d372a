// SPDX-License-Identifier: GPL-2.0-only
// A machine with two CMA areas and the module loaded.
#pragma once

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include <cma_track.h>
#include <fmt/format.h>
#include <hosted/cma.h>
#include <hosted/core_tracepoints.h>

#include "fixture.h"

namespace module_tests
{

// A range of page frames in an area.
struct cma_range {
	std::string area;
	unsigned long start;
	unsigned long end; // the last page frame

	bool operator==(const cma_range &) const = default;
	friend std::ostream &operator<<(std::ostream &os, const cma_range &r)
	{
		return os << fmt::format("{} [{}-{}]", r.area, r.start, r.end);
	}
};

// Fire the allocator's tracepoints for any range, even one that it would not choose.
inline void tell_alloc(const cma &area, unsigned long pfn, unsigned long count, int error = 0)
{
	trace_cma_alloc_finish(helper_cma_name(&area), pfn, nullptr, count, 0, error);
}
inline void tell_release(const cma &area, unsigned long pfn, unsigned long count)
{
	trace_cma_release(helper_cma_name(&area), pfn, nullptr, count);
}

class cma_test : public machine_test
{
protected:
	static constexpr unsigned long base = 4096, pages = 2048, camera_base = 8192,
				       chunks_base = 16384;

	static std::string show_path(const std::string &name)
	{
		return "/sys/kernel/debug/tarn_cma/" + name + "/show";
	}
	// The listing of an area as "start-end count" lines. This ranks the module's records.
	lines listed(const cma &area)
	{
		forget_log();
		EXPECT_EQ(read_file(show_path(helper_cma_name(&area))), "0\n");
		lines found;
		const std::string start = fmt::format("[show_info] {} [", helper_cma_name(&area));
		for (const std::string &line : log_lines(log_info, start)) {
			const std::size_t close = line.find("] count:");
			found.push_back(line.substr(start.size(), close - start.size()) + ' ' +
					line.substr(close + 8));
		}
		return found;
	}
	// The records in the order in which a release looks for its own: first what is newer than
	// the last listing, newest first, then the rest by first page.
	std::vector<const cma_stackinfo *> ranked() NO_THREAD_SAFETY_ANALYSIS
	{
		std::vector<const cma_stackinfo *> found;
		for (list_head *at = head_->next; at != head_; at = at->next)
			found.push_back(cma_stackinfo_of(at));
		std::ranges::sort(found, {}, [&](const cma_stackinfo *info) {
			const bool old = info->serial <= *ranked_serial_;
			return std::tuple(old, old ? info->start_pfn : 0, ~info->serial);
		});
		return found;
	}
	std::vector<cma_range> records()
	{
		std::vector<cma_range> found;
		for (const cma_stackinfo *info : ranked())
			found.push_back({info->name, info->start_pfn, info->end_pfn});
		return found;
	}

	cma &area = hosted::add_cma_area("linux,cma", base, pages);
	cma &camera = hosted::add_cma_area("camera", camera_base, 512, 2);
	cma &chunks = hosted::add_cma_area("chunks", chunks_base, 8192, 2);
	cma &failed_area = hosted::add_failed_cma_area("failed", 24576);
	hosted::loaded_module module;

private:
	list_head *head_ = module.internal<list_head>("cmainfolist");
	const u64 *ranked_serial_ = module.internal<u64>("cma_ranked_serial");
};

} // namespace module_tests
