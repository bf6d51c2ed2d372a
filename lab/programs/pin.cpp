// SPDX-License-Identifier: GPL-2.0-only
// pin NAME HOW [AREA]: a task called NAME allocates a page of a CMA area and pins it. HOW is "pin"
// (pin_user_pages), "get" (get_user_pages), "add" or "page" (the pin bridge), "movable" (like pin,
// but a page outside CMA areas), "storm" (like pin, over and over until it is killed), or "hold" (a
// pipe, which keeps the page in place until the task is killed). With AREA, the page is one of that
// area, after the first third of a block, so that free blocks of many sizes can come before it.
// Prints the page's frame number in hexadecimal.
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "failure.h"

namespace
{

constexpr std::size_t page_size = 4096;

struct range {
	std::uint64_t first, end;
};

std::uint64_t number(const std::filesystem::path &path)
{
	std::ifstream file(path);
	std::uint64_t value = 0;

	file >> value;
	return value;
}

std::vector<range> cma_areas()
{
	std::vector<range> areas;

	for (const auto &area : std::filesystem::directory_iterator("/sys/kernel/debug/cma")) {
		const std::uint64_t base = number(area.path() / "base_pfn");

		areas.push_back({base, base + number(area.path() / "count")});
	}
	return areas;
}

std::vector<range> late_in_blocks(const std::filesystem::path &area)
{
	constexpr std::uint64_t block = 1024; // pages, the allocator's largest
	const std::uint64_t base = number("/sys/kernel/debug/cma" / area / "base_pfn");
	const std::uint64_t count = number("/sys/kernel/debug/cma" / area / "count");
	std::vector<range> late;

	for (std::uint64_t at = base; at < base + count; at += block)
		late.push_back({at + block / 3, at + block});
	return late;
}

std::uint64_t pfn_of(int pagemap, const char *address)
{
	constexpr std::uint64_t pfn_mask = (std::uint64_t{1} << 55) - 1;
	std::uint64_t entry = 0;
	const auto at = static_cast<off_t>(reinterpret_cast<std::uintptr_t>(address) / page_size *
					   sizeof(entry));

	if (pread(pagemap, &entry, sizeof(entry), at) != sizeof(entry))
		lab::fail("cannot read the page map");
	return entry & pfn_mask;
}

struct found_page {
	char *address;
	std::uint64_t pfn;
};

// The kernel allocates from CMA once CMA pages are more than half of the free memory, so this fills
// memory until it does.
found_page find_page(const std::vector<range> &areas, bool inside)
{
	const std::size_t most = 200u << 20;
	const int pagemap = lab::must(open("/proc/self/pagemap", O_RDONLY), "pagemap");
	auto *memory = static_cast<char *>(
		mmap(nullptr, most, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));

	for (char *page = memory; page < memory + most; page += page_size) {
		*page = 1;
		const std::uint64_t pfn = pfn_of(pagemap, page);
		bool in_area = false;

		for (const range &area : areas)
			in_area |= pfn >= area.first && pfn < area.end;
		if (in_area != inside)
			continue;
		munmap(memory, page - memory);
		munmap(page + page_size, memory + most - (page + page_size));
		return {page, pfn};
	}
	lab::fail("the kernel allocated no such page");
}

// The kernel's own test of its pinning functions; see its mm/gup_test.
struct gup_test {
	std::uint64_t get_usec, put_usec, address, size;
	std::uint32_t pages_per_call, gup_flags, test_flags, which_pages[8];
};

void kernel_test(unsigned command, const char *address)
{
	constexpr std::uint32_t foll_write = 1;
	gup_test test = {};
	const int fd = lab::must(open("/sys/kernel/debug/gup_test", O_RDWR), "gup_test");

	test.address = reinterpret_cast<std::uintptr_t>(address);
	test.size = page_size;
	test.pages_per_call = 1;
	test.gup_flags = foll_write;
	lab::must(ioctl(fd, _IOC(_IOC_READ | _IOC_WRITE, 'g', command, sizeof(test)), &test),
		  "gup_test");
	close(fd);
}

void hold(char *address)
{
	const iovec page = {address, page_size};
	int fds[2];

	lab::must(pipe(fds), "pipe");
	lab::must(vmsplice(fds[1], &page, 1, 0), "vmsplice");
}

void bridge(const std::string &how, const char *address)
{
	char text[32];
	const int fd = lab::must(open("/sys/kernel/debug/pin_bridge/pin", O_WRONLY), "pin_bridge");
	const int size = std::snprintf(text, sizeof(text), "%s %lx", how.c_str(),
				       reinterpret_cast<std::uintptr_t>(address));

	lab::must(write(fd, text, size), "pin_bridge");
	close(fd);
}

} // namespace

int main(int argc, char **argv)
{
	constexpr unsigned get_user_pages = 4;
	constexpr unsigned pin_user_pages = 5;

	if (argc != 3 && argc != 4)
		lab::fail("usage: pin NAME pin|get|add|page|movable|storm|hold [AREA]");

	const std::string how = argv[2];
	const found_page page =
		find_page(argc == 4 ? late_in_blocks(argv[3]) : cma_areas(), how != "movable");

	prctl(PR_SET_NAME, argv[1]);
	if (how == "pin" || how == "movable" || how == "storm")
		kernel_test(pin_user_pages, page.address);
	else if (how == "get")
		kernel_test(get_user_pages, page.address);
	else if (how == "hold")
		hold(page.address);
	else
		bridge(how, page.address);
	std::printf("0x%lx\n", page.pfn);
	std::fflush(stdout);
	while (how == "storm")
		kernel_test(pin_user_pages, page.address);
	while (how == "hold")
		pause();
	return 0;
}
