// SPDX-License-Identifier: GPL-2.0-only
// The diagnostic subsystems that module start and stop bring up and down. Each init leaves its
// subsystem running or cleanly not running, each exit may be called in either case. Context:
// process, may sleep.
#pragma once

#include <kernel/compiler.h>

KERNEL_C_BEGIN

// Locks, rate limits and work items that exist from load to unload, because exported entries may
// use them at any time. Cannot fail.
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
