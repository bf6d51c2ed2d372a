// SPDX-License-Identifier: GPL-2.0-only
// Detects use of freed memory: with AddressSanitizer if it is compiled in, otherwise with a pattern
// that must still be there when the memory is allocated again.
#pragma once

#include <cstddef>
#include <cstring>

#include <hosted/engine/judge.h>

#if defined(__SANITIZE_ADDRESS__)
#define HOSTED_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HOSTED_ASAN 1
#endif
#endif

#ifdef HOSTED_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace hosted
{

#ifdef HOSTED_ASAN

inline void poison(unsigned char *at, std::size_t bytes)
{
	ASAN_POISON_MEMORY_REGION(at, bytes);
}

inline void unpoison(unsigned char *at, std::size_t bytes)
{
	ASAN_UNPOISON_MEMORY_REGION(at, bytes);
}

#else

inline constexpr unsigned char free_byte = 0x6b;

inline void poison(unsigned char *at, std::size_t bytes)
{
	if constexpr (judging)
		std::memset(at, free_byte, bytes);
}

inline void unpoison(const unsigned char *at, std::size_t bytes)
{
	if constexpr (judging)
		if (*at != free_byte || std::memcmp(at, at + 1, bytes - 1) != 0)
			judge_stop("use after free", "freed memory was written to");
}

#endif

} // namespace hosted
