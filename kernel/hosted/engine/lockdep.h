// SPDX-License-Identifier: GPL-2.0-only
// Lock classes and the order in which they nest, learned from the callers. Timers and work items
// count as locks: their callback holds the lock, and waiting for the callback takes it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <hosted/engine/judge.h>

namespace hosted
{

inline constexpr unsigned max_lock_classes = 512;

// The class for a name and a key; the key is any address that distinguishes classes of the same
// name. Thread safe.
unsigned lock_class(const char *name, const void *key);
// The result stays valid forever. Takes no lock.
const char *lock_class_name(unsigned lock_class);

using lock_class_set = std::array<std::atomic<std::uint64_t>, max_lock_classes / 64>;
// For each class, the classes that have been taken directly after it.
extern constinit std::array<lock_class_set, max_lock_classes> lock_order;
void learn_lock_order(const held_lock &held, unsigned next);

// Stops the caller if taking this class now contradicts the order seen so far. Only the last held
// lock needs checking: its order relative to the earlier ones is already known.
inline void check_lock_order(const thread_context &ctx, unsigned next)
{
	if constexpr (judging) {
		if (ctx.held.empty())
			return;
		const held_lock &last = ctx.held.back();
		const auto &word = lock_order[last.lock_class][next / 64];
		if ((word.load(std::memory_order_relaxed) >> (next % 64) & 1) == 0) [[unlikely]]
			learn_lock_order(last, next);
	}
}

inline void push_held_lock(thread_context &ctx, const void *lock, unsigned lock_class)
{
	if constexpr (judging)
		ctx.held.push_back({lock, lock_class});
}

inline void pop_held_lock(thread_context &ctx, const void *lock)
{
	if constexpr (judging) {
		for (auto it = ctx.held.end(); it != ctx.held.begin();) {
			if ((--it)->lock == lock) {
				ctx.held.erase(it);
				return;
			}
		}
	}
}

} // namespace hosted
