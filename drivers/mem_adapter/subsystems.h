// SPDX-License-Identifier: GPL-2.0-only
// Start and stop of the diagnostic subsystems. Each init returns 0 or a negative error and leaves
// its subsystem fully running or fully stopped, unless it says otherwise; each exit may be called
// in either case. Context: process, may sleep.
#pragma once

#include <kernel/compiler.h>

KERNEL_C_BEGIN

// Set up locks, rate limits and work items, which exist from load to unload because exported
// functions may use them at any time. Cannot fail.
void lmkd_netlink_load(void);
void memcheck_load(void);
void slub_track_load(void);
void vmalloc_track_load(void);

int abort_mm_opt_init(void);
void abort_mm_opt_exit(void);
int mm_event_init(void);
void mm_event_exit(void);
int cma_track_init(void);
void cma_track_exit(void);
int pin_track_init(void);
void pin_track_exit(void);

KERNEL_C_END
