// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/core_tracepoints.h>

#include <string_view>

#include <hosted/fault.h>

// A probe captures the stack in a function of its own.
constinit tracepoint __tracepoint_cma_alloc_finish{"cma_alloc_finish", 2};
constinit tracepoint __tracepoint_cma_release{"cma_release", 2};

tracepoint *helper_find_tracepoint(const char *name)
{
	hosted::might_sleep("helper_find_tracepoint");
	if (hosted::should_fail("find_tracepoint"))
		return nullptr;
	for (tracepoint *tp : {&__tracepoint_cma_alloc_finish, &__tracepoint_cma_release})
		if (std::string_view(tp->name) == name)
			return tp;
	return nullptr;
}
