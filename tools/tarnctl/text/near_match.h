// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarn
{

// The names that a mistyped one may stand for, closest first, at most three: those that begin
// with it, and those from which it differs in a third of its characters, rounded up.
std::vector<std::string> near_matches(std::string_view mistyped,
				      std::span<const std::string> names);

} // namespace tarn
