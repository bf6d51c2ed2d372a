// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Creates the caches when the kernel boots. Process context.
void make_kmalloc_caches();

} // namespace hosted
