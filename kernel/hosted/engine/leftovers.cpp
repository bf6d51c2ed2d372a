// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/leftovers.h>
#include <utility>

namespace hosted
{

namespace
{

using report_function = std::function<std::vector<std::string>()>;

// Filled before main, so it needs no lock.
std::vector<report_function> &reports()
{
	static std::vector<report_function> the_reports;
	return the_reports;
}

} // namespace

leftover_source::leftover_source(report_function report)
{
	reports().push_back(std::move(report));
}

std::vector<std::string> leftovers()
{
	std::vector<std::string> lines;
	for (const report_function &report : reports()) {
		for (std::string &line : report())
			lines.push_back(std::move(line));
	}
	return lines;
}

} // namespace hosted
