// SPDX-License-Identifier: GPL-2.0-only
// The pace of leak notifications.
#pragma once

// One notification per call site in this many jiffies (half a minute at 250 Hz): lmkd needs to
// know, not to be flooded.
inline constexpr int leak_notify_interval = 7500;
inline constexpr int leak_notify_burst = 1;
