// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/vendor_hooks.h>

#include <string_view>

namespace
{

// A slab probe passes the event to a recorder, which captures the stack.
constexpr unsigned probe_frames(std::string_view hook)
{
	return hook.starts_with("android_vh_slab_") ? 2 : 1;
}

} // namespace

#define DEFINE_HOOK(hook, prototype)                                                               \
	constinit tracepoint __tracepoint_##hook{#hook, probe_frames(#hook)};                      \
	constinit tracepoint *const volatile helper_##hook = &__tracepoint_##hook;
KERNEL_VENDOR_HOOKS(DEFINE_HOOK)
