// SPDX-License-Identifier: GPL-2.0-only
// The event client and the service behind it, as a test sees them.
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
	std::vector<std::pair<std::string, std::variant<std::string, s64>>> items; // as added
};

// The events written since the last call, oldest first, and removes them. Thread safe, as the rest.
std::vector<ember_event> take_ember_events();
// The calls made since the last call: "alloc 1000", "add_str appId", "add_int free_page", "write",
// "destroy".
std::vector<std::string> take_ember_calls();

// The service gives out no event object while one of these lives.
class ember_refusal
{
public:
	ember_refusal();
	~ember_refusal();
	ember_refusal(const ember_refusal &) = delete;
	ember_refusal &operator=(const ember_refusal &) = delete;
};

} // namespace platform
