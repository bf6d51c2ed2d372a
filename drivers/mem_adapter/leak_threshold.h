// SPDX-License-Identifier: GPL-2.0-only
// The four leak thresholds, in KiB; slab_leak_k is among the hot words. Tolerated race: read and
// written without a lock, each a single word, from any context, so a reader sees either the old or
// the new value.
#pragma once

#include <kernel/types.h>

#include "hot_words.h"
#include "page_counts.h"

inline constexpr unsigned int default_threshold_k = 1048576; // 1 GiB

KERNEL_C_BEGIN

extern unsigned int slab_k;
extern unsigned int vmalloc_k;
extern unsigned int vmalloc_leak_k;

// Sets the threshold that type, exactly one TH_... value, selects. Any other type changes nothing.
// Context: any; never sleeps.
void tarn_set_threshold(unsigned int type, unsigned int value);

KERNEL_C_END

// What tarn_should_detect_slab_leak() returns, without a call: for the slab hook. Context: any;
// never sleeps.
inline bool slab_leak_suspected()
{
	return READ_ONCE(hot.slab_leak_k) < unreclaimable_slab_kib();
}
