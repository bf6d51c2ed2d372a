// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::trace
{

// What the page allocator gives out at most, and so the slab allocator.
inline constexpr std::uint32_t max_object_bytes = 4 << 20;

// Whether mainline creates the cache of that name with its objects accounted as reclaimable.
bool is_reclaimable(std::string_view cache_name);

// The kernel's name of the kmalloc cache whose objects have that many bytes.
std::string kmalloc_name(std::uint32_t bytes);

// The bytes of an object that a `kmalloc-*` name tells; 0 if it tells none.
std::uint32_t size_in_name(std::string_view cache_name);

} // namespace tarn::trace
