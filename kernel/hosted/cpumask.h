// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Takes a CPU on or off line. What runs on it, and what it has counted, stays. Thread safe.
void set_cpu_online(unsigned cpu, bool online);

// Eight CPUs are on line.
void reset_cpus();

} // namespace hosted
