// SPDX-License-Identifier: GPL-2.0-only
// The chain that is told when the vmalloc address space has run out.
#pragma once

#include <kernel/notifier.h>

namespace hosted
{

// Calls the blocks by priority. Returns the address space that they made free, in their own count.
// Process context, may sleep.
unsigned long call_vmap_purge_chain();

} // namespace hosted
