// SPDX-License-Identifier: GPL-2.0-only
// Usage: services gfp                  checks the zones of all sixteen combinations of zone flags
//        services find PID             prints the thread that find_task_mm finds
//        services block                prints the test block's address and physical address
//        services range FIRST PAGES TARGET ordinary|read-only|none
//        services peek PAGE            prints the page's first word
//        services watch PAGE...        reads pages that hold their numbers, over and over, until
//                                      it is killed; fails at another value or a fault
//        services poke PAGE VALUE      writes it
//        services flags ENTRIES BYTES set|clear   prints the pages that then have the flag
//        services dma BYTES ATTRS [iommu]         maps a heap buffer and prints how
// Makes one call of the memcheck device's memory services.
#include <string_view>

#include <linux/dma-heap.h>

#include "memcheck_file.h"

namespace
{

std::uint32_t number(const char *text)
{
	return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0));
}

int check_gfp_zones(const lab::memcheck_file &device)
{
	constexpr std::uint32_t dma = 1, highmem = 2, movable = 8;

	for (std::uint32_t flags = 0; flags < 16; flags++) {
		// The other flag bits do not matter.
		std::uint32_t zone = flags | 0xcc0;

		if (const int error = device.call(TARN_IOC_GFP_ZONE, &zone))
			return error;
		std::uint32_t wanted = 0;

		if (flags == (movable | highmem))
			wanted = 2;
		else if (flags == 0 || flags == dma || flags == highmem || flags == movable ||
			 flags == (movable | dma))
			wanted = 1;
		if (zone != wanted)
			lab::fail("flags 0x%x: zone %u, wanted %u", flags, zone, wanted);
	}
	return 0;
}

int find_thread(const lab::memcheck_file &device, const char *pid)
{
	auto thread = static_cast<std::int32_t>(number(pid));
	const int error = device.call(TARN_IOC_FIND_TASK_MM, &thread);

	if (!error)
		std::printf("%d\n", thread);
	return error;
}

int print_block(const lab::memcheck_file &device)
{
	tarn_test_block block = {};
	const int error = device.call(TARN_IOC_TEST_BLOCK, &block);

	if (!error)
		std::printf("0x%016llx 0x%016llx\n", static_cast<unsigned long long>(block.address),
			    static_cast<unsigned long long>(block.physical));
	return error;
}

int change_range(const lab::memcheck_file &device, char **argv)
{
	const std::string_view access = argv[3];
	tarn_test_range range = {number(argv[0]), number(argv[1]), number(argv[2]),
				 TARN_TEST_ORDINARY};

	if (access == "read-only")
		range.access = TARN_TEST_READ_ONLY;
	else if (access == "none")
		range.access = TARN_TEST_NONE;
	return device.call(TARN_IOC_TEST_RANGE, &range);
}

int peek(const lab::memcheck_file &device, const char *page)
{
	tarn_test_word word = {number(page), 0, 0};
	const int error = device.call(TARN_IOC_TEST_READ, &word);

	if (!error)
		std::printf("%llu\n", static_cast<unsigned long long>(word.value));
	return error;
}

int poke(const lab::memcheck_file &device, char **argv)
{
	tarn_test_word word = {number(argv[0]), 0, number(argv[1])};

	return device.call(TARN_IOC_TEST_WRITE, &word);
}

int watch(const lab::memcheck_file &device, int argc, char **argv)
{
	for (unsigned long i = 0;; i++) {
		tarn_test_word word = {number(argv[i % static_cast<unsigned long>(argc)]), 0, 0};

		if (const int error = device.call(TARN_IOC_TEST_READ, &word))
			return error;
		if (word.value != word.page)
			lab::fail("page %u holds %llu", word.page,
				  static_cast<unsigned long long>(word.value));
	}
}

int change_flags(const lab::memcheck_file &device, char **argv)
{
	tarn_test_flags flags = {number(argv[0]), number(argv[1]),
				 argv[2] == std::string_view("set"), 0};
	const int error = device.call(TARN_IOC_TEST_PAGE_FLAGS, &flags);

	if (!error)
		std::printf("%u\n", flags.flagged);
	return error;
}

int map_buffer(const lab::memcheck_file &device, int argc, char **argv)
{
	const int heap = lab::must(open("/dev/dma_heap/system", O_RDWR | O_CLOEXEC), "heap");
	dma_heap_allocation_data buffer = {};
	tarn_test_dma test = {};

	buffer.len = number(argv[0]);
	buffer.fd_flags = O_RDWR | O_CLOEXEC;
	lab::must(ioctl(heap, DMA_HEAP_IOCTL_ALLOC, &buffer), "allocation in the heap");
	test.dmabuf = static_cast<std::int32_t>(buffer.fd);
	test.attrs = number(argv[1]);
	test.iommu = argc > 2;
	const int error = device.call(TARN_IOC_TEST_DMA, &test);

	if (!error)
		std::printf("result %d entries %u bytes %llu same %u\n", test.result, test.entries,
			    static_cast<unsigned long long>(test.bytes), test.same);
	close(static_cast<int>(buffer.fd));
	close(heap);
	return error;
}

int error_of(const lab::memcheck_file &device, std::string_view what, int argc, char **argv)
{
	if (what == "gfp")
		return check_gfp_zones(device);
	if (what == "block")
		return print_block(device);
	if (what == "find" && argc == 1)
		return find_thread(device, argv[0]);
	if (what == "range" && argc == 4)
		return change_range(device, argv);
	if (what == "watch" && argc >= 1)
		return watch(device, argc, argv);
	if (what == "peek" && argc == 1)
		return peek(device, argv[0]);
	if (what == "poke" && argc == 2)
		return poke(device, argv);
	if (what == "flags" && argc == 3)
		return change_flags(device, argv);
	if (what == "dma" && argc >= 2)
		return map_buffer(device, argc, argv);
	lab::fail("unknown call or wrong arguments");
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
		lab::fail("usage: services CALL [ARGUMENT...]");
	const lab::memcheck_file device;
	const int error = error_of(device, argv[1], argc - 2, argv + 2);

	if (error)
		lab::fail("%s: %s", argv[1], std::strerror(error));
}
