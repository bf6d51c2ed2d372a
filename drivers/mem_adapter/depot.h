// SPDX-License-Identifier: GPL-2.0-only
// The kernel's stack depot. It exists only if someone asked for it, and must not be saved to if it
// could not be set up. Its users do without stacks then.
#pragma once

#include <kernel/stackdepot.h>

KERNEL_C_BEGIN

// Sets the depot up for a user, and logs if that fails. A depot that is set up stays. Context:
// process, may sleep.
void depot_set_up(const char *user);
// Saves a stack. Returns 0 if it cannot be saved, or if there is no depot. Context: any that gfp
// allows.
depot_stack_handle_t depot_save(unsigned long *entries, unsigned int nr_entries, gfp_t gfp);

KERNEL_C_END
