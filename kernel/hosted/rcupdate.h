// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <hosted/engine/context.h>

namespace hosted
{

// Adds or removes a thread that grace periods check. Remove it outside read sections.
void add_rcu_reader(const thread_context &ctx);
void remove_rcu_reader(const thread_context &ctx);

} // namespace hosted
