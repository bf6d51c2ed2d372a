// SPDX-License-Identifier: GPL-2.0-only
// page_out MIB: fills this much memory, asks the kernel to page it out, and prints how many KiB of
// this process are then swapped out.
#include <cstring>
#include <fstream>
#include <string>
#include <sys/mman.h>

#include "failure.h"

int main(int argc, char **argv)
{
	constexpr int madv_pageout = 21;

	if (argc != 2)
		lab::fail("usage: page_out MIB");

	const std::size_t size = std::stoul(argv[1]) << 20;
	auto *memory = static_cast<char *>(
		mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));

	for (std::size_t i = 0; i < size; i++)
		memory[i] = static_cast<char>(i >> 12);
	lab::must(madvise(memory, size, madv_pageout), "madvise");

	std::ifstream status("/proc/self/status");
	std::string word;

	while (status >> word && word != "VmSwap:") {
	}
	status >> word;
	std::puts(word.c_str());
	return 0;
}
