// SPDX-License-Identifier: GPL-2.0-only
// Classes of locks and the order in which they nest, learned from what callers do. Timers and work
// items take part as locks that their callback holds and that waiting for the callback takes.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <hosted/judge.h>

namespace hosted
{

inline constexpr unsigned max_lock_classes = 512;

// The class of a name and a key, which may be any address that tells the class from others of that
// name. Thread safe.
unsigned lock_class(const char *name, const void *key);
// Valid for good. Takes no lock.
const char *lock_class_name(unsigned lock_class);

using lock_class_set = std::array<std::atomic<std::uint64_t>, max_lock_classes / 64>;
// For each class, the classes that were taken right after it.
extern constinit std::array<lock_class_set, max_lock_classes> lock_order;
void learn_lock_order(const held_lock &held, unsigned next);

// Stops the caller if taking the class now contradicts the order seen so far. Locks held before the
// last one need no look: their order to the last one is known already.
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
