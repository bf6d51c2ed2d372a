// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace tarn
{

// Replaces control characters by question marks. Names that come from the kernel may contain any
// bytes, and some would change the terminal.
std::string printable(const std::string &name);

} // namespace tarn
