// SPDX-License-Identifier: GPL-2.0-only
// dma_heap hold HEAP PAGES... allocates one buffer of each size from a heap of the kernel, says so,
// and frees all of them when its standard input ends. dma_heap mix HEAP COUNT SEED allocates and
// frees COUNT buffers at random, prints what it holds and keeps that until its standard input ends.
#include <fcntl.h>
#include <linux/dma-heap.h>
#include <random>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "failure.h"

namespace
{

constexpr unsigned page_size = 4096;

class heap
{
public:
	explicit heap(const std::string &name)
		: fd_(lab::must(open(("/dev/dma_heap/" + name).c_str(), O_RDWR), name.c_str()))
	{
	}

	// Returns the buffer's descriptor, or -1 with errno set.
	[[nodiscard]] int take(unsigned pages) const
	{
		dma_heap_allocation_data data = {};

		data.len = std::uint64_t{pages} * page_size;
		data.fd_flags = O_RDWR | O_CLOEXEC;
		return ioctl(fd_, DMA_HEAP_IOCTL_ALLOC, &data) ? -1 : static_cast<int>(data.fd);
	}

private:
	int fd_;
};

void wait_for_end()
{
	char c = 0;

	std::fflush(stdout);
	while (read(STDIN_FILENO, &c, 1) > 0) {
	}
}

void hold(const heap &from, char **sizes)
{
	for (; *sizes; sizes++)
		lab::must(from.take(std::stoul(*sizes)), *sizes);
	std::puts("held");
	wait_for_end();
}

// Keeps many buffers, of sizes that fragment the area.
void mix(const heap &from, unsigned count, unsigned seed)
{
	constexpr unsigned most_buffers = 300;
	std::mt19937 random(seed);
	std::vector<int> held;
	unsigned failed = 0;

	for (unsigned i = 0; i < count; i++) {
		if (held.size() < most_buffers && random() % 5 < 3) {
			const int fd = from.take(1 + random() % (random() % 8 ? 8 : 64));

			fd < 0 ? void(failed++) : held.push_back(fd);
		} else if (!held.empty()) {
			std::swap(held[random() % held.size()], held.back());
			close(held.back());
			held.pop_back();
		}
	}
	std::printf("held %zu buffers, %u refused\n", held.size(), failed);
	wait_for_end();
}

} // namespace

int main(int argc, char **argv)
{
	const std::string how = argc > 1 ? argv[1] : "";

	if (how == "hold" && argc > 3)
		hold(heap(argv[2]), argv + 3);
	else if (how == "mix" && argc == 5)
		mix(heap(argv[2]), std::stoul(argv[3]), std::stoul(argv[4]));
	else
		lab::fail("usage: dma_heap hold HEAP PAGES... | mix HEAP COUNT SEED");
	return 0;
}
