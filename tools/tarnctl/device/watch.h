// SPDX-License-Identifier: GPL-2.0-only
// Watching the lmkd channel.
#pragma once

#include <tarnctl/device/follow.h>
#include <tarnctl/device/lmkd_channel.h>

namespace tarn
{

// Registers as lmkd and shows what arrives until a limit is reached or a signal asks to end. False
// if the time was over before the count was reached. Throws device_error.
bool watch(lmkd_channel &channel, const follow_limits &limits, const follow_output &output);

} // namespace tarn
