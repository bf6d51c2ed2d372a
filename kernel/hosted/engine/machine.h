// SPDX-License-Identifier: GPL-2.0-only
// One booted kernel.
#pragma once

namespace hosted
{

// Resets the hosted kernel at both ends of its life. Its destructor stops the program if a module
// left something behind. One at a time.
class machine
{
public:
	machine();
	~machine();
	machine(const machine &) = delete;
	machine &operator=(const machine &) = delete;
};

} // namespace hosted
