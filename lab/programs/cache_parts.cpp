// SPDX-License-Identifier: GPL-2.0-only
// Usage: cache_parts DEVICE drop
//        cache_parts DEVICE reclaim BYTES
// Fills the page cache of a block device with three parts of 8 MiB: one only read, one also mapped,
// one written. Then the adapter frees memory on this very thread. Prints the cached pages before
// and after, the result, and whether PF_MEMALLOC is still set.
#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <string_view>

#include <sys/mman.h>

#include "memcheck_file.h"

namespace
{

constexpr std::size_t page_size = 4096;
constexpr std::size_t part_pages = 2048;
constexpr std::size_t part_size = part_pages * page_size;

class cached_parts
{
public:
	explicit cached_parts(const char *path)
		: fd_(lab::must(open(path, O_RDWR | O_CLOEXEC), path)),
		  mapping_(static_cast<unsigned char *>(
			  mmap(nullptr, parts * part_size, PROT_READ, MAP_SHARED, fd_, 0)))
	{
		if (mapping_ == MAP_FAILED)
			lab::fail("mmap: %s", std::strerror(errno));
		// Readahead would cross from part to part.
		posix_fadvise(fd_, 0, 0, POSIX_FADV_RANDOM);
		madvise(mapping_, parts * part_size, MADV_RANDOM);
		fill();
	}

	void print(const char *when) const
	{
		std::array<unsigned char, parts * part_pages> cached;

		lab::must(mincore(mapping_, parts * part_size, cached.data()), "mincore");
		for (std::size_t part = 0; part < parts; part++) {
			const auto first = cached.begin() + part * part_pages;

			std::printf("%s_%s %td\n", names[part], when,
				    std::count_if(first, first + part_pages,
						  [](unsigned char page) { return page & 1; }));
		}
	}

private:
	static constexpr std::size_t parts = 3;
	static constexpr const char *names[parts] = {"clean", "mapped", "dirty"};

	void fill()
	{
		std::array<char, page_size> page = {};

		for (std::size_t at = 0; at < 2 * part_size; at += page_size)
			lab::must(pread(fd_, page.data(), page_size, static_cast<off_t>(at)),
				  "read");
		for (std::size_t at = part_size; at < 2 * part_size; at += page_size)
			static_cast<void>(*const_cast<volatile unsigned char *>(mapping_ + at));
		for (std::size_t at = 2 * part_size; at < 3 * part_size; at += page_size)
			lab::must(pwrite(fd_, page.data(), page_size, static_cast<off_t>(at)),
				  "write");
	}

	int fd_;
	unsigned char *mapping_;
};

bool has_memalloc()
{
	constexpr unsigned long pf_memalloc = 0x800;
	std::ifstream file("/proc/self/stat");
	std::string line, word;

	std::getline(file, line);
	// After the name: state, parent, group, session, terminal, its group, flags.
	unsigned long flags = 0;

	if (std::sscanf(line.c_str() + line.rfind(')') + 1, " %*c %*d %*d %*d %*d %*d %lu",
			&flags) != 1)
		lab::fail("no flags: %s", line.c_str());
	return flags & pf_memalloc;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 3)
		lab::fail("usage: cache_parts DEVICE drop|reclaim [BYTES]");
	const lab::memcheck_file device;
	const cached_parts parts(argv[1]);
	int error = 0;

	parts.print("before");
	if (argv[2] == std::string_view("drop")) {
		error = device.call(TARN_IOC_DROP_PAGE_CACHE, nullptr);
	} else {
		tarn_reclaim_request request = {
			std::strtoull(argc > 3 ? argv[3] : "4096", nullptr, 0), 0};

		error = device.call(TARN_IOC_RECLAIM, &request);
		std::printf("reclaimed %llu\n", static_cast<unsigned long long>(request.pages));
	}
	if (error)
		lab::fail("%s: %s", argv[2], std::strerror(error));
	parts.print("after");
	std::printf("memalloc %d\n", has_memalloc());
}
