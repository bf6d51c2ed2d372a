// SPDX-License-Identifier: GPL-2.0-only
// Stands in for the hunt in traces where the hosted kernel is not built.
#include <tarnctl/hunt/hunt.h>
#include <tarnctl/hunt/trace_hunt.h>

namespace tarn
{

bool can_hunt_traces()
{
	return false;
}

trace_hunt_output run_trace_hunt(const trace_hunt_options &)
{
	throw hunt_error("this build does not read traces; hunt on a kernel with --device");
}

trace_hunt_output run_trace_caches(const trace_hunt_options &)
{
	throw hunt_error("this build does not read traces; take one to a workstation");
}

} // namespace tarn
