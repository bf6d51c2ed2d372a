// SPDX-License-Identifier: GPL-2.0-only
// Usage: memcheck prepare|on|off slab|vmalloc
//        memcheck read [SIZE]       prints the slab readout
//        memcheck notify VALUE      sends a value to lmkd
//        memcheck event TYPE COUNT  counts events
//        memcheck leaks             prints the mask of exceeded thresholds
// Makes one call of the memcheck device.
#include <cstdio>
#include <string_view>

#include "memcheck_file.h"

namespace
{

std::uint32_t number(const char *text)
{
	return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0));
}

int error_of(const lab::memcheck_file &device, std::string_view what, int argc, char **argv)
{
	if (what == "read") {
		const std::uint64_t size = argc > 2 ? number(argv[2]) : MEMCHECK_MAX_SIZE;
		const auto text = device.read(MEMTYPE_SLUB, size);

		std::fwrite(text.buffer.data() + sizeof(memcheck_info), 1,
			    text.error ? 0 : text.size, stdout);
		return text.error;
	}
	if (what == "leaks") {
		std::uint32_t mask = 0;
		const int error = device.call(TARN_IOC_GET_LEAKS, &mask);

		std::printf("%u\n", mask);
		return error;
	}
	if (argc < 3)
		lab::fail("%s: an argument is missing", argv[1]);
	if (what == "notify") {
		std::uint32_t value = number(argv[2]);

		return device.call(TARN_IOC_NOTIFY_LMKD, &value);
	}
	if (what == "event") {
		std::uint32_t type = number(argv[2]);
		int error = 0;

		for (std::uint32_t i = 0; i < (argc > 3 ? number(argv[3]) : 1) && !error; i++)
			error = device.call(TARN_IOC_REPORT_EVENT, &type);
		return error;
	}
	const std::uint32_t memtype =
		argv[2] == std::string_view("vmalloc") ? MEMTYPE_VMALLOC : MEMTYPE_SLUB;

	if (what == "prepare")
		return device.command(memtype, MEMCHECK_CMD_PREPARE);
	if (what == "on")
		return device.command(memtype, MEMCHECK_CMD_ON);
	if (what == "off")
		return device.command(memtype, MEMCHECK_CMD_OFF);
	lab::fail("%s: unknown", argv[1]);
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
		lab::fail("usage: memcheck CALL [ARGUMENT...]");
	const lab::memcheck_file device;
	const int error = error_of(device, argv[1], argc, argv);

	if (error)
		lab::fail("%s: %s", argv[1], std::strerror(error));
}
