// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/clock.h>
#include <kernel/jiffies.h>

unsigned long volatile jiffies = hosted::boot_jiffies;
