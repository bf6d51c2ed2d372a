// SPDX-License-Identifier: GPL-2.0-only
// CMA areas for people and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cma_area.h"

namespace tarn
{

// Numbers, a map and the owners, for a terminal. The size of a page is in bytes.
std::string cma_text(const cma_area &area, std::uint64_t page_size);
// One JSON object and a line end.
std::string cma_json(const std::vector<cma_area> &areas);

} // namespace tarn
