// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Takes a CPU online or offline. Whatever runs on it, and its counts, remain. Thread safe.
void set_cpu_online(unsigned cpu, bool online);

// Puts exactly eight CPUs online.
void reset_cpus();

} // namespace hosted
