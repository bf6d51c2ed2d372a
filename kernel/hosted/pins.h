// SPDX-License-Identifier: GPL-2.0-only
// The kernel's functions that pin pages. Kprobes can attach to the entry of each.
#pragma once

#include <hosted/mm.h>

namespace hosted
{

// The flag for a plain reference, as opposed to FOLL_PIN.
inline constexpr unsigned foll_get = 1;

// The page must have an owner. Context: any, for everything here.
void folio_add_pin(page &folio);
int try_grab_page(page &page, unsigned flags);
page *try_grab_folio(page &page, int refs, unsigned flags);

// Unpins the page's folio.
void unpin(page &page);
bool is_pinned(page &page);

} // namespace hosted
