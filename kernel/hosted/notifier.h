// SPDX-License-Identifier: GPL-2.0-only
// The notifier chain called when vmalloc runs out of address space.
#pragma once

#include <kernel/notifier.h>

namespace hosted
{

// Calls the blocks by priority. Returns how much address space they say they freed. Process
// context, may sleep.
unsigned long call_vmap_purge_chain();

} // namespace hosted
