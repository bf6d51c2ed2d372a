// SPDX-License-Identifier: GPL-2.0-only
// Watching the lmkd channel.
#pragma once

#include "follow.h"
#include "lmkd_channel.h"

namespace tarn
{

// Registers and shows what arrives until a limit is reached or a signal asks to end. False if the
// time was over before the count was reached.
bool watch(lmkd_channel &channel, const follow_limits &limits, const follow_output &output);

} // namespace tarn
