// SPDX-License-Identifier: GPL-2.0-only
// One booted kernel.
#pragma once

namespace hosted
{

// Resets the hosted kernel's state at both ends of its life. At its end nothing that a module
// registered may be left. One at a time.
class machine
{
public:
	machine();
	~machine();
	machine(const machine &) = delete;
	machine &operator=(const machine &) = delete;
};

} // namespace hosted
