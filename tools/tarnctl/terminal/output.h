// SPDX-License-Identifier: GPL-2.0-only
// Writing to standard output and standard error, either of which may be closed or full.
#pragma once

#include <string_view>

namespace tarn
{

// Call first. A standard file that is closed would become the next file that is opened, and what is
// printed would go there. This puts a file in its place that takes no output.
void occupy_standard_files();

// Writes to standard output at once. Throws std::system_error on failure.
void print_out(std::string_view text);

// Writes to standard error at once. False on failure: nobody is left to tell.
bool print_to_error(std::string_view text) noexcept;
// A sentence for the user on standard error: "tarnctl: ...".
void print_error(std::string_view sentence) noexcept;

} // namespace tarn
