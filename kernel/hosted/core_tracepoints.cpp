// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/core_tracepoints.h>

#include <string_view>

#include <hosted/engine/fault.h>

// A probe captures the stack in a separate function.
#define DEFINE_TRACEPOINT(name, prototype) constinit tracepoint __tracepoint_##name{#name, 2};
KERNEL_CORE_TRACEPOINTS(DEFINE_TRACEPOINT)

tracepoint *helper_find_tracepoint(const char *name)
{
#define ADDRESS_OF(name, prototype) &__tracepoint_##name,
	static constexpr tracepoint *all[] = {KERNEL_CORE_TRACEPOINTS(ADDRESS_OF)};

	hosted::might_sleep("helper_find_tracepoint");
	if (hosted::should_fail("find_tracepoint"))
		return nullptr;
	for (tracepoint *tp : all)
		if (std::string_view(tp->name) == name)
			return tp;
	return nullptr;
}
