// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/pins.h>

#include <hosted/kprobes.h>

namespace hosted
{
namespace
{

// A pin counts as this many references, so that the reference count reveals it.
constexpr int pin_references = 1024;

// Garbage in the upper half of a register that holds a 32-bit argument.
constexpr unsigned long stale_half = 0x5a5a'5a5aUL << 32;

unsigned long argument(const page &page)
{
	return reinterpret_cast<unsigned long>(&page);
}

unsigned long argument(unsigned value)
{
	return stale_half | value;
}

page &grab(page &page, int refs, unsigned flags)
{
	struct page &head = folio_head(page);
	check_owned(head, "pin");
	head.refcount.fetch_add(flags & FOLL_PIN ? refs * pin_references : refs,
				std::memory_order_relaxed);
	return head;
}

} // namespace

void folio_add_pin(page &folio)
{
	enter(probed::folio_add_pin, {argument(folio)});
	grab(folio, 1, FOLL_PIN);
}

int try_grab_page(page &page, unsigned flags)
{
	enter(probed::try_grab_page, {argument(page), argument(flags)});
	grab(page, 1, flags);
	return 0;
}

page *try_grab_folio(page &page, int refs, unsigned flags)
{
	enter(probed::try_grab_folio,
	      {argument(page), argument(static_cast<unsigned>(refs)), argument(flags)});
	return &grab(page, refs, flags);
}

void unpin(page &page)
{
	grab(page, -1, FOLL_PIN);
}

bool is_pinned(page &page)
{
	return folio_head(page).refcount.load(std::memory_order_relaxed) >= pin_references;
}

} // namespace hosted
