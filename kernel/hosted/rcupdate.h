// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <hosted/context.h>

namespace hosted
{

// The threads that a grace period asks. A thread is removed outside of read sections.
void add_rcu_reader(const thread_context &ctx);
void remove_rcu_reader(const thread_context &ctx);

} // namespace hosted
