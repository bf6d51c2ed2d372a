// SPDX-License-Identifier: GPL-2.0-only
// Page pin tracking. Nothing is attached yet.
#include "subsystems.h"

int pin_track_init(void)
{
	return 0;
}

void pin_track_exit(void) {}
