// SPDX-License-Identifier: GPL-2.0-only
// CMA areas as text and as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tarnctl/cma/cma_area.h>

namespace tarn
{

// Numbers, a map and the owners, for a terminal. The page size is in bytes.
std::string cma_text(const cma_area &area, std::uint64_t page_size);
// A JSON object and a line end.
std::string cma_json(const cma_areas &all);

} // namespace tarn
