// SPDX-License-Identifier: GPL-2.0-only
#include <linux/cpumask.h>

#include <kernel/cpumask.h>

const unsigned long *helper_online_cpus(void)
{
	return cpumask_bits(cpu_online_mask);
}
