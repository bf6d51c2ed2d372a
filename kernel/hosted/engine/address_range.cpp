// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/address_range.h>

#include <cerrno>
#include <system_error>

#include <sys/mman.h>

namespace hosted
{
namespace
{

constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

unsigned char *map(void *at, std::size_t bytes, int protection, int more_flags)
{
	void *range = mmap(at, bytes, protection, flags | more_flags, -1, 0);
	if (range == MAP_FAILED)
		throw std::system_error(errno, std::generic_category(), "mmap");
	return static_cast<unsigned char *>(range);
}

} // namespace

unsigned char *reserve_range(std::size_t bytes, access a)
{
	return map(nullptr, bytes, a == access::open ? PROT_READ | PROT_WRITE : PROT_NONE, 0);
}

void open_pages(unsigned char *at, std::size_t bytes)
{
	if (mprotect(at, bytes, PROT_READ | PROT_WRITE) != 0)
		throw std::system_error(errno, std::generic_category(), "mprotect");
}

void close_pages(unsigned char *at, std::size_t bytes)
{
	map(at, bytes, PROT_NONE, MAP_FIXED);
}

} // namespace hosted
