// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace tarn
{

// Names of the kernel's may hold any bytes, and control characters would play with the terminal:
// each becomes a question mark.
std::string printable(const std::string &name);

} // namespace tarn
