// SPDX-License-Identifier: GPL-2.0-only
// The four leak thresholds, in KiB. Tolerated race: read and written without a lock, each a single
// word, from any context, so a reader sees either the old or the new value.
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

extern unsigned int slab_k;
extern unsigned int vmalloc_k;
extern unsigned int slab_leak_k;
extern unsigned int vmalloc_leak_k;

// Sets the threshold that type, exactly one TH_... value, selects. Any other type changes nothing.
// Context: any; never sleeps.
void tarn_set_threshold(unsigned int type, unsigned int value);

KERNEL_C_END
