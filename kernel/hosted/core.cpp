// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/clock.h>
#include <hosted/core.h>
#include <hosted/log.h>

namespace hosted
{

void reset_core()
{
	reset_clock();
	(void)take_log();
	clear_taint();
}

} // namespace hosted
