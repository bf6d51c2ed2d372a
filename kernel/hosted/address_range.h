// SPDX-License-Identifier: GPL-2.0-only
// Address ranges of the simulated kernel, reserved in the host once and backed on use.
#pragma once

#include <cstddef>

namespace hosted
{

inline constexpr std::size_t page_size = 4096;

// A range that is readable and writable from the start, or inaccessible until it is opened.
enum class access { open, closed };
unsigned char *reserve_range(std::size_t bytes, access a);

// Makes pages of a closed range usable, zero-filled.
void open_pages(unsigned char *at, std::size_t bytes);
// Gives their memory back; the next touch of them ends the program.
void close_pages(unsigned char *at, std::size_t bytes);

} // namespace hosted
