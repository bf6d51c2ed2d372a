// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// A machine boots with a depot that nobody has set up. What it holds stays, as handles do.
void reset_stackdepot();

} // namespace hosted
