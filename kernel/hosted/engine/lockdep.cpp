// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>
#include <hosted/engine/lockdep.h>
#include <mutex>
#include <string>
#include <vector>

namespace hosted
{

constinit std::array<lock_class_set, max_lock_classes> lock_order{};

namespace
{

struct class_entry {
	std::string name; // copied, since the caller's string may be unloaded with its module
	const void *key;
};

struct class_table {
	std::mutex lock;
	// an entry never changes once its index has been returned
	std::array<class_entry, max_lock_classes> entries;
	unsigned count = 0;
};

class_table &classes()
{
	static class_table the_table;
	return the_table;
}

bool reaches(unsigned from, unsigned to, std::vector<bool> &visited)
{
	if (from == to)
		return true;
	visited[from] = true;
	for (unsigned next = 0; next < visited.size(); next++) {
		const std::uint64_t word =
			lock_order[from][next / 64].load(std::memory_order_relaxed);
		if ((word >> (next % 64) & 1) != 0 && !visited[next] && reaches(next, to, visited))
			return true;
	}
	return false;
}

bool contradicts(unsigned last, unsigned next)
{
	class_table &t = classes();
	const std::lock_guard guard(t.lock);
	std::vector<bool> visited(t.count);
	if (reaches(next, last, visited))
		return true;
	lock_order[last][next / 64].fetch_or(1UL << (next % 64), std::memory_order_relaxed);
	return false;
}

} // namespace

unsigned lock_class(const char *name, const void *key)
{
	class_table &t = classes();
	const std::lock_guard guard(t.lock);
	for (unsigned i = 0; i < t.count; i++) {
		if (t.entries[i].key == key && t.entries[i].name == name)
			return i;
	}
	if (t.count == max_lock_classes)
		judge_stop("lock class", "too many classes");
	t.entries[t.count] = {name, key};
	return t.count++;
}

const char *lock_class_name(unsigned lock_class)
{
	return classes().entries[lock_class].name.c_str();
}

void learn_lock_order(const held_lock &held, unsigned next)
{
	if (held.lock_class == next)
		judge_stop("lock order", fmt::format("two locks of class {} are taken together",
						     lock_class_name(next)));
	if (contradicts(held.lock_class, next))
		judge_stop("lock order",
			   fmt::format("{} is taken under {}; the reverse order was seen before",
				       lock_class_name(next), lock_class_name(held.lock_class)));
}

} // namespace hosted
