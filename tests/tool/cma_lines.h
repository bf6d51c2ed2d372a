// SPDX-License-Identifier: GPL-2.0-only
// Lines of a report about an area, as the module logs them.
#pragma once

#include <string>

#include "played_log.h"

namespace tarn
{

inline std::string brief(const char *text)
{
	return module_says("show_brief", text);
}

inline std::string info(const char *text)
{
	return module_says("show_info", text);
}

inline const std::string summary =
	brief("cma a valid_pfn=[4096-8191] count:4096 used:30 req:0 lasttry-pfn:0x0");
inline const std::string first = info("cma a [4096-4105] count:10");
inline const std::string second = info("cma a [5000-5019] count:20");
inline const std::string frame = info("        f+0x1/0x2");
inline const std::string other_frame = info("        g+0x1/0x2 [m]");

} // namespace tarn
