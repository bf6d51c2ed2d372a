// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace hosted
{

// The depot must be set up again. Its stacks stay, so that handles remain valid.
void reset_stackdepot();

} // namespace hosted
