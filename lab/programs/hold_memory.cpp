// SPDX-License-Identifier: GPL-2.0-only
// Usage: hold_memory [anon|swapped|locked|shared MIB]...
// Holds memory of each kind until it is killed; prints "ready" when it has all of it. "swapped" is
// anonymous memory that the kernel is asked to page out.
#include <cstdint>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

#include "failure.h"

namespace
{

void hold(std::string_view kind, std::size_t size)
{
	const int sharing = kind == "shared" ? MAP_SHARED : MAP_PRIVATE;
	void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, sharing | MAP_ANONYMOUS, -1, 0);

	if (memory == MAP_FAILED)
		lab::fail("mmap: %s", std::strerror(errno));
	// The pages must differ: pages of equal words would take no room in a compressed swap
	// device.
	for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t) * 64) {
		auto *word = reinterpret_cast<std::uint64_t *>(static_cast<char *>(memory) + at);

		*word = at * 0x9e3779b97f4a7c15;
	}
	if (kind == "locked")
		lab::must(mlock(memory, size), "mlock");
	if (kind == "swapped")
		lab::must(madvise(memory, size, MADV_PAGEOUT), "madvise");
}

} // namespace

int main(int argc, char **argv)
{
	for (int i = 1; i + 1 < argc; i += 2)
		hold(argv[i], std::strtoul(argv[i + 1], nullptr, 10) << 20);
	std::puts("ready");
	std::fflush(stdout);
	pause();
}
