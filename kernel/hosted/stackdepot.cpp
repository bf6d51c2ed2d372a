// SPDX-License-Identifier: GPL-2.0-only
// The depot only grows. Readers take no lock: a record is complete before it can be reached through
// its bucket or its handle, and never changes afterwards.
#include <kernel/stackdepot.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <span>
#include <vector>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/poison.h>
#include <hosted/stackdepot.h>
#include <kernel/err.h>

namespace hosted
{
namespace
{

// The entries follow their record directly, so that a look-up of a known stack misses the cache
// once.
struct record {
	const record *next; // in the bucket
	std::uint64_t hash;
	depot_stack_handle_t handle;
	std::uint32_t size;

	[[nodiscard]] std::span<const unsigned long> entries() const
	{
		return {reinterpret_cast<const unsigned long *>(this + 1), size};
	}
};
static_assert(alignof(record) % alignof(unsigned long) == 0);

#ifdef HOSTED_ASAN
// One allocation for each record, so that the sanitizer finds a read past its entries.
constexpr std::size_t pool_bytes = 0;
#else
constexpr std::size_t pool_bytes = std::size_t{64} << 10;
#endif

constexpr unsigned bucket_bits = 16;
constexpr unsigned chunk_bits = 12;
constexpr unsigned max_chunks = 1024;

using chunk = std::array<std::atomic<record *>, 1U << chunk_bits>;

constinit std::array<std::atomic<record *>, 1U << bucket_bits> buckets{};
constinit std::array<std::atomic<chunk *>, max_chunks> chunks{}; // records by their number
constinit std::mutex growth;
constinit std::atomic<bool> ready = false;
constinit std::uint32_t count = 0;     // under growth
constinit std::span<std::byte> pool{}; // the unused rest of the newest pool; under growth

// Odd, so that it has an inverse modulo 2^32: distinct numbers get distinct handles that do not
// look like numbers, and no number from 1 on gets the handle 0.
constexpr std::uint32_t scramble = 0x9e3779b1;

// Each round of Newton's iteration doubles the number of correct bits, starting with 3.
constexpr std::uint32_t inverse(std::uint32_t odd)
{
	std::uint32_t x = odd;
	for (int round = 0; round < 4; round++)
		x *= 2 - odd * x;
	return x;
}
constexpr std::uint32_t unscramble = inverse(scramble);
static_assert(scramble * unscramble == 1);

// The products are independent of each other, so that the processor computes them in parallel.
std::uint64_t hash_of(std::span<const unsigned long> entries)
{
	constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
	std::uint64_t hash = entries.size();
	std::uint64_t factor = odd;
	for (const unsigned long entry : entries) {
		hash += (entry ^ entry >> 32) * factor;
		factor *= odd;
	}
	hash = (hash ^ hash >> 32) * odd;
	return hash ^ hash >> 32;
}

std::atomic<record *> &bucket_of(std::uint64_t hash)
{
	return buckets[hash & (buckets.size() - 1)];
}

depot_stack_handle_t find(std::uint64_t hash, std::span<const unsigned long> entries)
{
	for (const record *r = bucket_of(hash).load(std::memory_order_acquire); r; r = r->next)
		if (r->hash == hash && std::ranges::equal(r->entries(), entries))
			return r->handle;
	return 0;
}

// Reserves memory for a record and its entries. Called with growth held.
void *reserve(std::size_t bytes)
{
	if (pool.size() < bytes) {
		const std::size_t fresh = std::max(bytes, pool_bytes);
		pool = {static_cast<std::byte *>(::operator new(fresh)), fresh};
	}
	void *start = pool.data();
	pool = pool.subspan(bytes);
	return start;
}

depot_stack_handle_t insert(std::uint64_t hash, std::span<const unsigned long> entries)
{
	const std::lock_guard guard(growth);
	if (const depot_stack_handle_t known = find(hash, entries))
		return known;
	if (count >> chunk_bits >= max_chunks)
		return 0;
	std::atomic<chunk *> &place = chunks[count >> chunk_bits];
	chunk *in = place.load(std::memory_order_relaxed);
	if (!in) {
		in = new chunk{};
		place.store(in, std::memory_order_release);
	}
	auto *r = new (reserve(sizeof(record) + entries.size_bytes()))
		record{bucket_of(hash).load(std::memory_order_relaxed), hash,
		       (count + 1) * scramble, static_cast<std::uint32_t>(entries.size())};
	std::memcpy(r + 1, entries.data(), entries.size_bytes());
	(*in)[count & (in->size() - 1)].store(r, std::memory_order_release);
	bucket_of(hash).store(r, std::memory_order_release);
	count++;
	return r->handle;
}

record *lookup(depot_stack_handle_t handle)
{
	const std::uint32_t number = handle * unscramble - 1;
	if (number >> chunk_bits >= max_chunks)
		return nullptr;
	chunk *in = chunks[number >> chunk_bits].load(std::memory_order_acquire);
	return in ? (*in)[number & (in->size() - 1)].load(std::memory_order_acquire) : nullptr;
}

} // namespace

void reset_stackdepot()
{
	ready.store(false, std::memory_order_relaxed);
}

} // namespace hosted

using namespace hosted;

int stack_depot_init(void)
{
	might_sleep("stack_depot_init");
	if (should_fail("stack_depot_init"))
		return -ENOMEM;
	ready.store(true, std::memory_order_relaxed);
	return 0;
}

depot_stack_handle_t stack_depot_save(unsigned long *entries, unsigned int nr_entries, gfp_t gfp)
{
	if (judging && !ready.load(std::memory_order_relaxed)) [[unlikely]]
		judge_stop("stack depot", "used before stack_depot_init");
	if constexpr (judging)
		if (gfp & __GFP_DIRECT_RECLAIM)
			might_sleep("stack_depot_save");
	if (nr_entries == 0 || should_fail("stack_depot_save"))
		return 0;
	const std::span stack(entries, nr_entries);
	const std::uint64_t hash = hash_of(stack);
	const depot_stack_handle_t known = find(hash, stack);
	return known ? known : insert(hash, stack);
}

unsigned int stack_depot_fetch(depot_stack_handle_t handle, unsigned long **entries)
{
	*entries = nullptr;
	if (handle == 0)
		return 0;
	record *r = lookup(handle);
	if (!r)
		return 0;
	*entries = const_cast<unsigned long *>(r->entries().data());
	return r->size;
}
