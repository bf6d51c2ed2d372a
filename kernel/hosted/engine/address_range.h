// SPDX-License-Identifier: GPL-2.0-only
// Address ranges of the simulated kernel, reserved on the host once and backed by memory on demand.
#pragma once

#include <cstddef>

namespace hosted
{

inline constexpr std::size_t page_size = 4096;

// An open range is readable and writable from the start; a closed one is inaccessible until its
// pages are opened.
enum class access { open, closed };
unsigned char *reserve_range(std::size_t bytes, access a);

// Makes pages of a closed range usable, zero-filled.
void open_pages(unsigned char *at, std::size_t bytes);
// Frees the pages' memory; touching them afterwards ends the program.
void close_pages(unsigned char *at, std::size_t bytes);

} // namespace hosted
