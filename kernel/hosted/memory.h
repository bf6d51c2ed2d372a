// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Brings the memory side back to a machine just booted: slab caches, vmalloc and CMA areas, page
// frames, page tables, device mappings, tracepoints, kprobes and statistics. Stops the program if
// the module left anything there. Process context.
void reset_memory();

} // namespace hosted
