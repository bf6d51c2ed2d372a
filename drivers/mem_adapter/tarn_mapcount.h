// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <kernel/mm.h>

KERNEL_C_BEGIN

// A probe: warns if the map count of a page without references changes. Context: any; never sleeps.
void tarn_updata_page_mapcount(void *data, struct page *page, bool inc_size, bool compound,
			       int *ret, bool *success);

KERNEL_C_END
