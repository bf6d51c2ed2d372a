// SPDX-License-Identifier: GPL-2.0-only
// The core's state between two uses of the same program.
#pragma once

namespace hosted
{

// Empties the log, clears the taint and, when no timer is pending, sets the clock back to boot.
void reset_core();

} // namespace hosted
