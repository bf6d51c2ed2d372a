// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Runs everything queued on the system work queue and ends its worker; the next work item starts a
// new one. No other thread may queue meanwhile. A held worker is let go.
void stop_workers();

} // namespace hosted
