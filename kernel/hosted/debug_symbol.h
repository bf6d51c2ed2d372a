// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <kernel/debug_symbol.h>
#include <kernel/err.h>

namespace hosted
{

// Hides a symbol: lookups of its index return "instead". Thread safe.
void hide_debug_symbol(android_debug_symbol_index index, void *instead = ERR_PTR(-ENOENT));
// Makes every symbol visible again.
void reset_debug_symbols();

} // namespace hosted
