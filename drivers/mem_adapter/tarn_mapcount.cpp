// SPDX-License-Identifier: GPL-2.0-only
// Checks each page whose map count changes. No locks: it reads two words of the page.
#include "tarn_mapcount.h"

#include <kernel/printk.h>

namespace
{

const struct page *compound_head(const struct page *page)
{
	const unsigned long head = helper_page_compound_head_word(page);

	return (head & 1) ? reinterpret_cast<const struct page *>(head - 1) : page;
}

} // namespace

void tarn_updata_page_mapcount(void *, struct page *page, bool, bool, int *, bool *)
{
	if (helper_page_refcount(compound_head(page)) == 0)
		helper_warn_tarn_mapcount();
}
