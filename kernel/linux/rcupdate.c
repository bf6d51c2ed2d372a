// SPDX-License-Identifier: GPL-2.0-only
#include <linux/rcupdate.h>

#include <kernel/rcupdate.h>

void helper_rcu_read_lock(void)
{
	rcu_read_lock();
}

void helper_rcu_read_unlock(void)
{
	rcu_read_unlock();
}
