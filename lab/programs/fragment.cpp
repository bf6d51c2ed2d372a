// SPDX-License-Identifier: GPL-2.0-only
// Usage: fragment MIB
// Allocates memory and frees every second page, so that free memory consists of single pages. Keeps
// the rest until it is killed; prints "ready" when done.
#include <sys/mman.h>
#include <unistd.h>

#include "failure.h"

int main(int argc, char **argv)
{
	constexpr std::size_t page_size = 4096;
	const std::size_t size = (argc > 1 ? std::strtoul(argv[1], nullptr, 0) : 64) << 20;
	void *memory =
		mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

	if (memory == MAP_FAILED)
		lab::fail("mmap: %s", std::strerror(errno));
	auto *bytes = static_cast<volatile char *>(memory);

	for (std::size_t at = 0; at < size; at += page_size)
		bytes[at] = 1;
	for (std::size_t at = 0; at < size; at += 2 * page_size)
		lab::must(madvise(static_cast<char *>(memory) + at, page_size, MADV_DONTNEED),
			  "madvise");
	std::puts("ready");
	std::fflush(stdout);
	pause();
}
