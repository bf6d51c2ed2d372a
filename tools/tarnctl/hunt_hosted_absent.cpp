// SPDX-License-Identifier: GPL-2.0-only
// Stands in for the hunt on the hosted kernel where that is not built.
#include "hunt_hosted.h"

namespace tarn
{

bool can_hunt_traces()
{
	return false;
}

hunt_result hunt_trace(const std::string &, const std::string &)
{
	throw hunt_error("this build has no hosted kernel; hunt on a kernel with --device");
}

} // namespace tarn
