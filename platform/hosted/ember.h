// SPDX-License-Identifier: GPL-2.0-only
// The event client and the service behind it, for tests.
#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <kernel/types.h>

namespace platform
{

struct ember_event {
	int number;
	// in the order in which they were added
	std::vector<std::pair<std::string, std::variant<std::string, s64>>> items;
};

// Removes and returns the events sent since the last call, oldest first. Thread safe, like
// everything here.
std::vector<ember_event> take_ember_events();
// The calls since the last call: "alloc 1000", "add_str appId", "add_int free_page", "write",
// "destroy".
std::vector<std::string> take_ember_calls();

// The service refuses to allocate events while one of these exists.
class ember_refusal
{
public:
	ember_refusal();
	~ember_refusal();
	ember_refusal(const ember_refusal &) = delete;
	ember_refusal &operator=(const ember_refusal &) = delete;
};

} // namespace platform
