// SPDX-License-Identifier: GPL-2.0-only
// The switches that abort madvise passes and compaction early.
#pragma once

#include <kernel/compiler.h>

struct vm_area_struct;

KERNEL_C_BEGIN

extern unsigned int abort_madvise_opt;
extern unsigned int abort_compact_opt;

// Probes on the vendor hooks through which the kernel asks whether to abort. They only ever set
// *abort, so as not to overrule another probe. Context: any; never sleep.
void should_abort_madvise(void *data, struct vm_area_struct *vma, bool *abort);
void should_abort_compact(void *data, bool *abort);

KERNEL_C_END
