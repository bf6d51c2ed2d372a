// SPDX-License-Identifier: GPL-2.0-only
// Memory by size, out of one slab cache for each power of two.
#include <hosted/kmalloc.h>

#include <array>
#include <atomic>
#include <bit>

#include <fmt/format.h>

#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/slab.h>

namespace hosted
{
namespace
{

constexpr unsigned min_shift = 3;
constexpr unsigned max_shift = 13;

constinit std::array<kmem_cache *, max_shift - min_shift + 1> caches{};
constinit std::atomic<long> allocated{0};

std::vector<std::string> report()
{
	const long objects = allocated;
	if (objects == 0)
		return {};
	return {fmt::format("{} kmalloc object(s)", objects)};
}

const leftover_source source(report);

} // namespace

void make_kmalloc_caches()
{
	for (unsigned shift = min_shift; shift <= max_shift; shift++)
		caches[shift - min_shift] =
			add_cache(fmt::format("kmalloc-{}", 1U << shift), 1U << shift);
}

} // namespace hosted

using namespace hosted;

void *helper_kzalloc(size_t size, gfp_t gfp)
{
	const auto shift = std::max<unsigned>(std::bit_width(size - 1), min_shift);
	if (size == 0 || shift > max_shift)
		judge_stop("slab", fmt::format("kmalloc of {} bytes", size));
	void *object = allocate(*caches[shift - min_shift], gfp | __GFP_ZERO);
	if (object)
		allocated.fetch_add(1, std::memory_order_relaxed);
	return object;
}

void kfree(const void *object)
{
	if (!object)
		return;
	release_kmalloced(const_cast<void *>(object));
	allocated.fetch_sub(1, std::memory_order_relaxed);
}
