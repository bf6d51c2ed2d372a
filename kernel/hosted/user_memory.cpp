// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/user_memory.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <shared_mutex>

#include <hosted/engine/judge.h>
#include <kernel/uaccess.h>

namespace hosted
{

// All buffers by address. Copies hold the lock shared, so that a buffer outlives the copies on it.
class user_space
{
public:
	static user_space &get()
	{
		static user_space space;
		return space;
	}

	void add(user_buffer &buffer)
	{
		const std::lock_guard guard(lock_);
		buffer.address_ = next_;
		next_ += (buffer.bytes_.size() / page + 2) * page;
		buffers_.emplace(buffer.address_, &buffer);
	}

	void remove(const user_buffer &buffer)
	{
		const std::lock_guard guard(lock_);
		buffers_.erase(buffer.address_);
	}

	void fault(user_buffer &buffer, std::size_t offset, std::size_t length)
	{
		const std::lock_guard guard(lock_);
		if (length != 0)
			buffer.faults_.emplace_back(offset, length);
	}

	// Calls copy for the reachable part of n bytes at a user address. Returns the number of
	// bytes left.
	template <class Copy>
	unsigned long access(const void *user, unsigned long n, Copy copy)
	{
		const std::shared_lock guard(lock_);
		const auto address = reinterpret_cast<std::uintptr_t>(user);
		auto found = buffers_.upper_bound(address);
		if (found == buffers_.begin())
			return n;
		user_buffer &buffer = *std::prev(found)->second;
		const std::size_t start = address - buffer.address_;
		const std::size_t size = buffer.bytes_.size();
		if (start >= size)
			return n;
		std::size_t end = start + std::min<std::size_t>(n, size - start);
		for (const auto &[offset, length] : buffer.faults_)
			if (start < offset || start - offset < length)
				end = std::min(end, std::max(offset, start));
		copy(buffer.bytes_.data() + start, end - start);
		return n - (end - start);
	}

private:
	static constexpr std::uintptr_t page = 4096;

	std::shared_mutex lock_;
	std::map<std::uintptr_t, user_buffer *> buffers_;
	std::uintptr_t next_ = 0x5500'0000'0000;
};

user_buffer::user_buffer(std::size_t size) : bytes_(size)
{
	user_space::get().add(*this);
}

user_buffer::~user_buffer()
{
	user_space::get().remove(*this);
}

void *user_buffer::address() const
{
	return reinterpret_cast<void *>(address_);
}

void user_buffer::fault(std::size_t offset, std::size_t length)
{
	user_space::get().fault(*this, offset, length);
}

} // namespace hosted

unsigned long helper_copy_from_user(void *to, const void *user_from, unsigned long n)
{
	hosted::might_sleep("copy_from_user");
	return hosted::user_space::get().access(
		user_from, n, [&](const std::byte *bytes, std::size_t count) {
			std::copy_n(bytes, count, static_cast<std::byte *>(to));
		});
}

unsigned long helper_copy_to_user(void *user_to, const void *from, unsigned long n)
{
	hosted::might_sleep("copy_to_user");
	return hosted::user_space::get().access(
		user_to, n, [&](std::byte *bytes, std::size_t count) {
			std::copy_n(static_cast<const std::byte *>(from), count, bytes);
		});
}
