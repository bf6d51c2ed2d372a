// SPDX-License-Identifier: GPL-2.0-only
// Makes invalid calls of the memcheck device; checks each errno and that nothing has changed.
#include <array>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>

#include "memcheck_file.h"

namespace
{

constexpr std::size_t page = 4096;

int failures = 0;

void expect(const std::string &what, int got, int wanted)
{
	if (got == wanted)
		return;
	std::printf("%s: %s, wanted %s\n", what.c_str(), std::strerror(got), std::strerror(wanted));
	failures++;
}

// Two pages: the first is read-only or writable, the second inaccessible.
class fenced_memory
{
public:
	explicit fenced_memory(int protection)
		: base_(static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
						 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
	{
		std::memset(base_, 0, 2 * page);
		mprotect(base_ + page, page, PROT_NONE);
		mprotect(base_, page, protection);
	}

	// An address with room for this many bytes before the fence.
	[[nodiscard]] void *room(std::size_t bytes) const
	{
		return base_ + page - bytes;
	}

private:
	char *base_;
};

struct request {
	const char *name;
	unsigned long number;
	std::size_t size; // of its record
	bool writes;	  // the record comes back
};

constexpr request requests[] = {
	{"SET_THRESHOLDS", TARN_IOC_SET_THRESHOLDS, sizeof(memcheck_threshold), false},
	{"GET_THRESHOLDS", TARN_IOC_GET_THRESHOLDS, sizeof(memcheck_threshold), true},
	{"COMMAND", TARN_IOC_COMMAND, sizeof(memcheck_command), false},
	{"READ_STACKS", TARN_IOC_READ_STACKS, sizeof(memcheck_info), true},
	{"GET_PAGES", TARN_IOC_GET_PAGES, sizeof(tarn_page_counts), true},
	{"GET_LEAKS", TARN_IOC_GET_LEAKS, sizeof(std::uint32_t), true},
	{"NOTIFY_LMKD", TARN_IOC_NOTIFY_LMKD, sizeof(std::uint32_t), false},
	{"REPORT_EVENT", TARN_IOC_REPORT_EVENT, sizeof(std::uint32_t), false},
};

memcheck_threshold thresholds(const lab::memcheck_file &device)
{
	memcheck_threshold now = {15, 0, 0, 0, 0};

	expect("thresholds", device.call(TARN_IOC_GET_THRESHOLDS, &now), 0);
	return now;
}

void bad_pointers(const lab::memcheck_file &device)
{
	const fenced_memory writable(PROT_READ | PROT_WRITE);
	const fenced_memory readable(PROT_READ);

	for (const request &request : requests) {
		const std::string name = request.name;
		const auto address = [](std::uintptr_t value) {
			return reinterpret_cast<void *>(value);
		};

		expect(name + " at null", device.call(request.number, nullptr), EFAULT);
		expect(name + " at 1", device.call(request.number, address(1)), EFAULT);
		expect(name + " at a kernel address",
		       device.call(request.number, address(0xffffff8000000000)), EFAULT);
		expect(name + " at the last address",
		       device.call(request.number, address(~std::uintptr_t{0})), EFAULT);
		expect(name + " behind the fence", device.call(request.number, writable.room(0)),
		       EFAULT);
		expect(name + " across the fence",
		       device.call(request.number, writable.room(request.size - 1)), EFAULT);
		if (!request.writes || request.number == TARN_IOC_READ_STACKS)
			continue;
		expect(name + " in memory that cannot be written",
		       device.call(request.number, readable.room(request.size)), EFAULT);
	}

	// An empty readout writes only its header, so it needs no room for text.
	auto *header = static_cast<memcheck_info *>(writable.room(sizeof(memcheck_info)));

	header->type = MEMTYPE_VMALLOC;
	header->size = MEMCHECK_MAX_SIZE;
	expect("readout without room", device.call(TARN_IOC_READ_STACKS, header), 0);
	expect("its size", static_cast<int>(header->size), 0);

	const fenced_memory fixed(PROT_READ | PROT_WRITE);

	header = static_cast<memcheck_info *>(fixed.room(sizeof(memcheck_info)));
	header->type = MEMTYPE_VMALLOC;
	header->size = 100;
	mprotect(static_cast<char *>(fixed.room(page)), page, PROT_READ);
	expect("readout whose header cannot be written", device.call(TARN_IOC_READ_STACKS, header),
	       EFAULT);
}

void readouts(const lab::memcheck_file &device)
{
	struct readout {
		std::uint64_t size;
		std::uint32_t type;
		int error;
	};
	constexpr readout readouts[] = {
		{0, MEMTYPE_SLUB, EINVAL},
		{MEMCHECK_MAX_SIZE + 1, MEMTYPE_SLUB, EINVAL},
		{std::uint64_t{1} << 32, MEMTYPE_SLUB, EINVAL},
		{~std::uint64_t{0}, MEMTYPE_SLUB, EINVAL},
		{~std::uint64_t{0} - 15, MEMTYPE_SLUB, EINVAL},
		{0, 1, EINVAL},
		{100, 0, EINVAL},
		{100, 1, EINVAL},
		{100, 8, EINVAL},
		{100, ~6u, EINVAL},
		{MEMCHECK_MAX_SIZE, MEMTYPE_SLUB, 0},
		{1, MEMTYPE_SLUB, 0},
		{100, MEMTYPE_VMALLOC, 0},
		{100, MEMTYPE_SLUB | MEMTYPE_VMALLOC, 0},
		{100, ~0u, 0},
	};
	std::vector<char> memory(sizeof(memcheck_info) + MEMCHECK_MAX_SIZE);

	for (const readout &wanted : readouts) {
		memcheck_info header = {wanted.type, 0x5a5a5a5a, wanted.size};

		std::memcpy(memory.data(), &header, sizeof(header));
		const std::string what = "readout of type " + std::to_string(wanted.type) +
					 ", size " + std::to_string(wanted.size);

		expect(what, device.call(TARN_IOC_READ_STACKS, memory.data()), wanted.error);
		std::memcpy(&header, memory.data(), sizeof(header));
		if (wanted.error == 0)
			expect(what + ": text", static_cast<int>(header.size), 0);
		else if (header.size != wanted.size)
			expect(what + ": header written", 1, 0);
		if (header.type != wanted.type || header.reserved0 != 0x5a5a5a5a)
			expect(what + ": header changed", 1, 0);
	}
}

void commands(const lab::memcheck_file &device)
{
	struct command {
		std::uint32_t memtype;
		std::uint32_t cmd;
		int error;
	};
	constexpr command commands[] = {
		{0, 1, 0},	  {1, 0, 0},	  {1, 1, 0},	  {8, 1, 0},	  {8, 99, 0},
		{6, 0, EINVAL},	  {6, 1, EINVAL}, {6, 2, EINVAL}, {7, 1, EINVAL}, {2, 3, EINVAL},
		{2, ~0u, EINVAL}, {4, 3, EINVAL}, {4, 0, 0},	  {2, 2, 0},	  {~0u, 1, EINVAL},
	};

	for (const command &wanted : commands) {
		memcheck_command record = {~0u, wanted.memtype, {~0u, ~0u}, wanted.cmd, ~0u};

		expect("command " + std::to_string(wanted.cmd) + " of type " +
			       std::to_string(wanted.memtype),
		       device.call(TARN_IOC_COMMAND, &record), wanted.error);
	}
}

void masks(const lab::memcheck_file &device)
{
	const memcheck_threshold before = thresholds(device);
	memcheck_threshold record = {~15u, 1, 2, 3, 4};

	expect("set of nothing", device.call(TARN_IOC_SET_THRESHOLDS, &record), 0);
	memcheck_threshold after = thresholds(device);

	expect("set of nothing changes", std::memcmp(&before, &after, sizeof(after)) != 0, 0);

	record = {TH_SLAB_K | TH_SLAB_LEAK_K, 11, 12, 13, 14};
	expect("set of two", device.call(TARN_IOC_SET_THRESHOLDS, &record), 0);
	after = thresholds(device);
	expect("set of two",
	       after.slab_k == 11 && after.vmalloc_k == before.vmalloc_k &&
		       after.slab_leak_k == 13 && after.vmalloc_leak_k == before.vmalloc_leak_k,
	       1);

	record = {~15u, 21, 22, 23, 24};
	expect("get of nothing", device.call(TARN_IOC_GET_THRESHOLDS, &record), 0);
	expect("get of nothing",
	       record.mask == ~15u && record.slab_k == 21 && record.vmalloc_leak_k == 24, 1);

	record = before;
	expect("set back", device.call(TARN_IOC_SET_THRESHOLDS, &record), 0);
}

void unknown_requests(const lab::memcheck_file &device)
{
	const unsigned long unknown[] = {
		0,
		~0ul,
		_IO('T', 0),
		_IOW('T', 9, std::uint32_t),
		_IOW('T', 255, std::uint32_t),
		_IOW('X', 3, memcheck_command),
		_IOW('T', 3, std::uint32_t),
		_IOR('T', 3, memcheck_command),
	};
	memcheck_command record = {};

	for (const unsigned long request : unknown)
		expect("request " + std::to_string(request), device.call(request, &record), ENOTTY);
	for (std::uint32_t type : {8u, 9u, 1u << 31, ~0u})
		expect("event of an unknown type", device.call(TARN_IOC_REPORT_EVENT, &type), 0);
}

// Only root may open the device.
void other_users()
{
	const pid_t child = fork();
	int status = 0;

	if (child == 0) {
		if (setuid(1000) != 0)
			_exit(2);
		_exit(open(TARN_DEVICE_PATH, O_RDWR) >= 0 ? 0 : errno);
	}
	waitpid(child, &status, 0);
	expect("open by another user", WEXITSTATUS(status), EACCES);
}

} // namespace

int main()
{
	const lab::memcheck_file device;
	const memcheck_threshold before = thresholds(device);

	bad_pointers(device);
	const memcheck_threshold after = thresholds(device);

	expect("bad pointers change thresholds", std::memcmp(&before, &after, sizeof(after)) != 0,
	       0);
	readouts(device);
	commands(device);
	masks(device);
	unknown_requests(device);
	other_users();
	return failures != 0;
}
