// SPDX-License-Identifier: GPL-2.0-only
// Virtual time: it moves only when someone moves it.
#pragma once

namespace hosted
{

inline constexpr unsigned long hz = 250;

// The clock's first tick: five minutes below the wrap of 32 bits, as a real kernel's.
inline constexpr unsigned long boot_jiffies = static_cast<unsigned int>(-300L * hz);

// Moves the clock on by ticks, tick by tick where timers are due; they run in softirq context on
// this thread. A timer that is armed for now or the past runs at the next tick.
void advance(unsigned long ticks);

// Back to the first tick, unless a timer is armed.
void reset_clock();

} // namespace hosted
