// SPDX-License-Identifier: GPL-2.0-only
// Virtual time. It moves only when a test advances it.
#pragma once

namespace hosted
{

inline constexpr unsigned long hz = 250;

// The clock's first tick: five minutes before the 32-bit wrap, as on a real kernel.
inline constexpr unsigned long boot_jiffies = static_cast<unsigned int>(-300L * hz);

// Advances the clock, tick by tick where timers are due; they run in softirq context on this
// thread. A timer armed for now or the past runs at the next tick.
void advance(unsigned long ticks);

// Resets the clock to the first tick, unless a timer is armed or running.
void reset_clock();

} // namespace hosted
