// SPDX-License-Identifier: GPL-2.0-only
// The page allocator, as the module calls it.
#pragma once

#include <functional>

#include <kernel/gfp.h>

namespace hosted
{

// Runs once, where the next caller waits for a page: what another CPU does meanwhile.
void at_next_page(std::function<void()> run);

// Forgets what at_next_page() left.
void reset_page_allocator();

} // namespace hosted
