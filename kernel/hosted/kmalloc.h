// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// The caches of a kernel that boots, which has none yet. Process context.
void make_kmalloc_caches();

} // namespace hosted
