// SPDX-License-Identifier: GPL-2.0-only
// The module's lines in the kernel log: "[MEM_ADAPTER] function:line: message".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kernel_log.h"

namespace tarn
{

// The message of a line that this function of the module logged, in its own bytes.
std::optional<std::string> module_message(const log_record &record, std::string_view function);

// Each takes what it expects from the front of a text, or leaves the text as it is and returns
// false.
bool take_literal(std::string_view &text, std::string_view literal);
bool take_number(std::string_view &text, std::uint64_t &value, int base = 10);

} // namespace tarn
