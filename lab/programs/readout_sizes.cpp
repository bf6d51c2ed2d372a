// SPDX-License-Identifier: GPL-2.0-only
// Reads the same hunt into buffers of many sizes: each must get as much of the same text as fits,
// and nothing else may be written. Then reads into memory that is not mapped. The target must be
// filp. Prints "logged N", the number of readouts that the module reports as cut short.
#include <algorithm>
#include <set>
#include <string>

#include <sys/mman.h>
#include <sys/prctl.h>

#include "memcheck_file.h"

namespace
{

constexpr std::size_t page = 4096;

// A hunt in which only this task allocates and frees enough objects to be reported, the same number
// each time.
void hunt(const lab::memcheck_file &device)
{
	constexpr int pipes = 60;

	if (device.command(MEMTYPE_SLUB, MEMCHECK_CMD_PREPARE) ||
	    device.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON))
		lab::fail("tracking cannot be switched on");
	for (int i = 0; i < pipes; i++) {
		int fds[2];

		lab::must(pipe(fds), "pipe");
		close(fds[0]);
		close(fds[1]);
	}
	if (device.command(MEMTYPE_SLUB, MEMCHECK_CMD_OFF))
		lab::fail("tracking cannot be switched off");
}

std::string text_of(const lab::memcheck_file::text &read)
{
	return {read.buffer.data() + sizeof(memcheck_info), read.size};
}

std::string read_all(const lab::memcheck_file &device)
{
	const auto read = device.read(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE);

	if (read.error)
		lab::fail("readout: %s", std::strerror(read.error));
	return text_of(read);
}

// Checks a readout of this size. Returns true if the module logs that there was no room for the
// records.
bool check_size(const lab::memcheck_file &device, const std::string &full, std::uint64_t size)
{
	hunt(device);
	const auto read = device.read(MEMTYPE_SLUB, size);
	const std::string wanted = full.substr(0, size - 1);

	if (read.error || text_of(read) != wanted)
		lab::fail("size %lu: error %d, %lu bytes instead of %zu:\n%s", size, read.error,
			  read.size, wanted.size(), text_of(read).c_str());
	const auto behind = read.buffer.begin() +
			    static_cast<std::ptrdiff_t>(sizeof(memcheck_info) + read.size);

	if (!std::all_of(behind, read.buffer.end(),
			 [](char c) { return c == lab::memcheck_file::guard_byte; }))
		lab::fail("size %lu: wrote past the text", size);

	// A kind that the readout did not reach is still there.
	const std::string rest = read_all(device);
	const std::size_t free_side = full.find("@@@@@filp SLUB_FREE");
	const bool cut = wanted.size() >= size - 1;
	const bool in_alloc = cut && size - 1 <= free_side;

	if (rest != (in_alloc ? full.substr(free_side) : ""))
		lab::fail("size %lu: a second readout returned:\n%s", size, rest.c_str());
	// Without room for a kind's headline, the readout ends silently.
	const std::size_t headline = full.find('\n', in_alloc ? 0 : free_side) + 1;

	return cut && size - 1 > headline;
}

void check_bad_rooms(const lab::memcheck_file &device, std::size_t full)
{
	auto *base = static_cast<char *>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE,
					      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
	auto *fence = base + 2 * page;

	mprotect(fence, page, PROT_NONE);
	for (const std::size_t room : {std::size_t{0}, std::size_t{1}, full - 1}) {
		hunt(device);
		memcheck_info header = {MEMTYPE_SLUB, 0, MEMCHECK_MAX_SIZE};
		char *buffer = fence - room - sizeof(header);

		std::memcpy(buffer, &header, sizeof(header));
		const int error = device.call(TARN_IOC_READ_STACKS, buffer);

		std::memcpy(&header, buffer, sizeof(header));
		if (error != EFAULT || header.size != full)
			lab::fail("room for %zu of %zu bytes: error %d, size %lu", room, full,
				  error, static_cast<unsigned long>(header.size));
	}
	// The text fits exactly.
	hunt(device);
	memcheck_info header = {MEMTYPE_SLUB, 0, MEMCHECK_MAX_SIZE};
	char *buffer = fence - full - sizeof(header);

	std::memcpy(buffer, &header, sizeof(header));
	if (const int error = device.call(TARN_IOC_READ_STACKS, buffer))
		lab::fail("room for the whole text: error %d", error);
}

} // namespace

int main()
{
	const lab::memcheck_file device;
	int logged = 0;

	prctl(PR_SET_NAME, "sizes");
	read_all(device); // leftovers of an earlier hunt
	hunt(device);
	const std::string full = read_all(device);

	if (full.find("@@@@@filp SLUB_ALLOC@@@@@\n") != 0 ||
	    full.find("@@@@@filp SLUB_FREE@@@@@\n") == std::string::npos)
		lab::fail("the hunt found nothing:\n%s", full.c_str());

	std::set<std::uint64_t> sizes = {
		1, 2, 3, 16, 17, 25, 26, 27, 28, 64, 4096, 65537, MEMCHECK_MAX_SIZE};
	for (const std::size_t at : {full.size(), full.find("@@@@@filp SLUB_FREE")})
		sizes.insert({at - 1, at, at + 1, at + 2, at + 30});
	for (const std::uint64_t size : sizes)
		logged += check_size(device, full, size);
	check_bad_rooms(device, full.size());
	std::printf("logged %d\n", logged);
}
