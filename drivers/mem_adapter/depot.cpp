// SPDX-License-Identifier: GPL-2.0-only
#include "depot.h"

#include "log.h"

namespace
{

// Set once, before the probes of the user that set it are attached.
constinit bool depot_ready = false;

} // namespace

void depot_set_up(const char *user)
{
	if (stack_depot_init())
		MEM_LOG(KERN_ERR, user, "stack_depot_init failed!\n");
	else
		WRITE_ONCE(depot_ready, true);
}

depot_stack_handle_t depot_save(unsigned long *entries, unsigned int nr_entries, gfp_t gfp)
{
	return READ_ONCE(depot_ready) ? stack_depot_save(entries, nr_entries, gfp) : 0;
}
