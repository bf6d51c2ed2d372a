// SPDX-License-Identifier: GPL-2.0-only
// Memory of a user process, which the kernel can only reach through user copies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace hosted
{

// Bytes at a user address that is not mapped in this program, so that direct access crashes.
// Buffers are never adjacent. Thread safe, except that the owner must keep bytes() apart from user
// copies.
class user_buffer
{
public:
	explicit user_buffer(std::size_t size);
	~user_buffer();
	user_buffer(const user_buffer &) = delete;
	user_buffer &operator=(const user_buffer &) = delete;

	[[nodiscard]] void *address() const;
	std::span<std::byte> bytes()
	{
		return bytes_;
	}
	// Makes user copies fault at a byte range.
	void fault(std::size_t offset, std::size_t length);

private:
	friend class user_space;
	std::vector<std::byte> bytes_;
	std::vector<std::pair<std::size_t, std::size_t>> faults_; // offset, length
	std::uintptr_t address_;
};

} // namespace hosted
