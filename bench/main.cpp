// SPDX-License-Identifier: GPL-2.0-only
// Usage: bench JSON_FILE XZ_TRACE TRACE [Google Benchmark's options]
// Prints the medians of the repetitions, module beside plain way, and writes them to the file.
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "rig.h"

namespace bench
{
namespace
{

// Cost of an event on one side of a row.
struct figures {
	double time = 0; // ns; 0: not measured
	double instructions = 0;
};

struct row {
	figures ours;
	figures plain;
};

std::string text_of_time(double ns)
{
	if (ns == 0)
		return "";
	if (ns < 1e3)
		return fmt::format("{:.1f} ns", ns);
	return ns < 1e6 ? fmt::format("{:.1f} us", ns / 1e3) : fmt::format("{:.2f} ms", ns / 1e6);
}

std::string text_of_instructions(const figures &f)
{
	if (f.time == 0)
		return "";
	return f.instructions > 0 ? fmt::format("{:.0f}", f.instructions) : "n/a";
}

class report : public benchmark::BenchmarkReporter
{
public:
	bool ReportContext(const Context &) override
	{
		return true;
	}
	void ReportRuns(const std::vector<Run> &runs) override;
	void print(const std::string &json_path) const;
	[[nodiscard]] bool failed() const
	{
		return failed_;
	}

private:
	figures &at(const std::string &name, const std::string &side)
	{
		row &r = rows_[name];

		return side == rig::side ? r.ours : r.plain;
	}

	std::map<std::string, row> rows_;
	bool failed_ = false;
};

void report::ReportRuns(const std::vector<Run> &runs)
{
	for (const Run &run : runs) {
		const std::string &whole = run.run_name.function_name;
		const std::string name = whole.substr(0, whole.rfind('/'));
		const std::string side = whole.substr(name.size() + 1);

		if (run.error_occurred) {
			fmt::print(stderr, "{}: {}\n", whole, run.error_message);
			failed_ = true;
		}
		if (run.aggregate_name != "median")
			continue;
		at(name, side) = {run.GetAdjustedRealTime() / run.counters.at("events"),
				  run.counters.at("instructions")};
		if (run.counters.contains("locked"))
			at(name + ", lock held", side) = {run.counters.at("locked"), 0};
		if (run.counters.contains("irqs_off"))
			at(name + ", irqs off", side) = {run.counters.at("irqs_off"), 0};
	}
}

void report::print(const std::string &json_path) const
{
	nlohmann::json all = nlohmann::json::array();

	fmt::print("{:<44} {:>9} {:>7} {:>9} {:>7} {:>6} {:>11}\n", "", "time", "instr.",
		   "plain way", "instr.", "ratio", "a second");
	for (const auto &[name, r] : rows_) {
		const double ratio = r.plain.time > 0 ? r.ours.time / r.plain.time : 0;

		fmt::print("{:<44} {:>9} {:>7} {:>9} {:>7} {:>6} {:>11.0f}\n", name,
			   text_of_time(r.ours.time), text_of_instructions(r.ours),
			   text_of_time(r.plain.time), text_of_instructions(r.plain),
			   ratio > 0 ? fmt::format("{:.2f}", ratio) : "", 1e9 / r.ours.time);
		all.push_back({{"name", name}, {"time_ns", r.ours.time}});
		if (r.ours.instructions > 0)
			all.back()["instructions"] = r.ours.instructions;
		if (ratio > 0)
			all.back().update({{"plain_time_ns", r.plain.time}, {"ratio", ratio}});
		if (r.plain.instructions > 0)
			all.back()["plain_instructions"] = r.plain.instructions;
	}
	std::ofstream(json_path) << all.dump(2) << '\n';
}

} // namespace
} // namespace bench

int main(int argc, char **argv)
{
	benchmark::Initialize(&argc, argv);
	if (argc != 4) {
		fmt::print(stderr, "Usage: bench JSON_FILE XZ_TRACE TRACE [--benchmark_...]\n");
		return 2;
	}
	bench::report report;

	bench::add_record_benchmarks();
	bench::add_readout_benchmarks();
	bench::add_replay_benchmarks(argv[2], argv[3]);
	bench::add_cma_benchmarks();
	bench::add_secpage_benchmarks();
	bench::add_service_benchmarks();
	benchmark::RunSpecifiedBenchmarks(&report);
	report.print(argv[1]);
	return report.failed() ? 1 : 0;
}
