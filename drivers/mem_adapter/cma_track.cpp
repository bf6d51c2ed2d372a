// SPDX-License-Identifier: GPL-2.0-only
// CMA allocation tracking. Nothing is attached yet.
#include "subsystems.h"

int cma_track_init(void)
{
	return 0;
}

void cma_track_exit(void) {}
