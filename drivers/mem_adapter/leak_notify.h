// SPDX-License-Identifier: GPL-2.0-only
// The rate limit of leak notifications.
#pragma once

// One notification per call site in this many jiffies (30 seconds at 250 Hz), so that lmkd is not
// flooded.
inline constexpr int leak_notify_interval = 7500;
inline constexpr int leak_notify_burst = 1;
