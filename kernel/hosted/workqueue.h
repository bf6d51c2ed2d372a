// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// Finishes what is queued on the system work queue and ends its worker, which the next work item
// starts again. Not while another thread may queue. The worker is let go if it is held.
void stop_workers();

} // namespace hosted
