// SPDX-License-Identifier: GPL-2.0-only
// The four leak thresholds, in KiB. Read and written without a lock, one whole word each, from any
// context; a reader sees the old or the new value.
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

extern unsigned int slab_k;
extern unsigned int vmalloc_k;
extern unsigned int slab_leak_k;
extern unsigned int vmalloc_leak_k;

// Sets the threshold that type (exactly one TH_... value) selects; any other type changes nothing.
// Context: any.
void tarn_set_threshold(unsigned int type, unsigned int value);

KERNEL_C_END
