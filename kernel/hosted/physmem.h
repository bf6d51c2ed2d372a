// SPDX-License-Identifier: GPL-2.0-only
// Simulated physical memory, which the host backs on use. The kernel's linear map of it, where its
// own code reads and writes, is the host's.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <kernel/types.h>

namespace hosted
{

// Above what 32 bits hold, and with a bit that virtual addresses of 39 bits do not have.
inline constexpr u64 ram_base = 0x8800000000;
inline constexpr std::size_t ram_frames = std::size_t{1} << 20;

enum class frame_use : unsigned char {
	free,
	allocated, // by the module
	table,	   // in the kernel's page tables
};

// A zeroed frame's number, or none when memory is full. Thread safe, as the rest.
std::optional<std::size_t> allocate_frame(frame_use use);
void release_frame(std::size_t frame);
frame_use use_of(std::size_t frame);
void set_use(std::size_t frame, frame_use use);

// The frame at an address of the linear map, or at a physical one; none outside of memory.
std::optional<std::size_t> frame_at(const void *address);
std::optional<std::size_t> frame_at(u64 phys);
u64 *frame_memory(std::size_t frame);
inline u64 frame_phys(std::size_t frame)
{
	return ram_base + frame * u64{4096};
}

// Takes every frame back.
void reset_physmem();

} // namespace hosted
