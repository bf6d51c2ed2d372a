// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <hosted/engine/context.h>

namespace hosted
{

void run_irq_work(thread_context &ctx);

// Called wherever a thread may have just switched interrupts on: the items that it queued while
// they were off run now.
inline void interrupts_on(thread_context &ctx)
{
	if (!ctx.irq_works.empty()) [[unlikely]]
		run_irq_work(ctx);
}

} // namespace hosted
