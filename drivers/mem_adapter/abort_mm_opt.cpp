// SPDX-License-Identifier: GPL-2.0-only
// The switches that make the kernel abort madvise cold/pageout passes and compaction. Nothing is
// attached yet.
#include "subsystems.h"

int abort_mm_opt_init(void)
{
	return 0;
}

void abort_mm_opt_exit(void) {}
