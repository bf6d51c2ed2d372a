// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/physmem.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>

#include <fmt/format.h>

#include <hosted/address_range.h>
#include <hosted/leftovers.h>
#include <hosted/poison.h>

namespace hosted
{
namespace
{

struct ram {
	unsigned char *const base = reserve_range(ram_frames * page_size, access::open);
	frame_use *const uses = reinterpret_cast<frame_use *>(
		reserve_range(ram_frames * sizeof(frame_use), access::open)); // by frame
	std::mutex lock;
	std::size_t touched = 0; // frames, from the base
	std::vector<std::size_t> freed;
};

ram &memory()
{
	// never destroyed, as a machine's memory
	static ram &instance = *new ram;
	return instance;
}

unsigned char *bytes_of(const ram &r, std::size_t frame)
{
	return r.base + frame * page_size;
}

const leftover_source frame_leftovers([] {
	ram &r = memory();
	const std::lock_guard guard(r.lock);
	std::vector<std::string> lines;
	for (std::size_t frame = 0; frame < r.touched; frame++)
		if (use_of(frame) == frame_use::allocated)
			lines.push_back(fmt::format("page at {:#x}", frame_phys(frame)));
	return lines;
});

} // namespace

std::optional<std::size_t> allocate_frame(frame_use use)
{
	ram &r = memory();
	const std::lock_guard guard(r.lock);
	std::size_t frame = r.touched;
	if (!r.freed.empty()) {
		frame = r.freed.back();
		r.freed.pop_back();
		unpoison(bytes_of(r, frame), page_size);
	} else if (r.touched == ram_frames) {
		return std::nullopt;
	} else {
		r.touched++;
	}
	std::memset(bytes_of(r, frame), 0, page_size);
	set_use(frame, use);
	return frame;
}

void release_frame(std::size_t frame)
{
	ram &r = memory();
	const std::lock_guard guard(r.lock);
	set_use(frame, frame_use::free);
	poison(bytes_of(r, frame), page_size);
	r.freed.push_back(frame);
}

frame_use use_of(std::size_t frame)
{
	return std::atomic_ref(memory().uses[frame]).load(std::memory_order_acquire);
}

void set_use(std::size_t frame, frame_use use)
{
	std::atomic_ref(memory().uses[frame]).store(use, std::memory_order_release);
}

std::optional<std::size_t> frame_at(const void *address)
{
	// an address below the base wraps to a number far above it
	const std::size_t frame = (reinterpret_cast<std::uintptr_t>(address) -
				   reinterpret_cast<std::uintptr_t>(memory().base)) /
				  page_size;
	return frame < ram_frames ? std::optional(frame) : std::nullopt;
}

std::optional<std::size_t> frame_at(u64 phys)
{
	const u64 frame = (phys - ram_base) / page_size;
	return frame < ram_frames ? std::optional<std::size_t>(frame) : std::nullopt;
}

u64 *frame_memory(std::size_t frame)
{
	return reinterpret_cast<u64 *>(bytes_of(memory(), frame));
}

void reset_physmem()
{
	ram &r = memory();
	const std::lock_guard guard(r.lock);
	for (const std::size_t frame : r.freed)
		unpoison(bytes_of(r, frame), page_size);
	for (std::size_t frame = 0; frame < r.touched; frame++)
		set_use(frame, frame_use::free);
	r.freed.clear();
	r.touched = 0;
}

} // namespace hosted
