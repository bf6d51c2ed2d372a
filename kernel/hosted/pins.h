// SPDX-License-Identifier: GPL-2.0-only
// The kernel's functions that pin pages. A kprobe may stand at the entry of each.
#pragma once

#include <hosted/mm.h>

namespace hosted
{

// A reference of the plain kind, among the flags beside FOLL_PIN.
inline constexpr unsigned foll_get = 1;

// Context: any, for all of these.
void folio_add_pin(page &folio);
int try_grab_page(page &page, unsigned flags);
page *try_grab_folio(page &page, int refs, unsigned flags);

// Drops a pin of the page's folio.
void unpin(page &page);
bool is_pinned(page &page);

} // namespace hosted
