// SPDX-License-Identifier: GPL-2.0-only
// The module's lines in the kernel log: "[MEM_ADAPTER] function:line: message".
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tarnctl/device/kernel_log.h>

namespace tarn
{

// The message of a line, unescaped, if this function of the module logged it.
std::optional<std::string> module_message(const log_record &record, std::string_view function);

} // namespace tarn
