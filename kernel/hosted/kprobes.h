// SPDX-License-Identifier: GPL-2.0-only
// Probes at the entry of kernel functions.
#pragma once

#include <atomic>
#include <initializer_list>
#include <string_view>

#include <kernel/kprobes.h>

namespace hosted
{

struct probe;

// The functions that can be probed.
enum class probed { folio_add_pin, try_grab_page, try_grab_folio };

struct probed_function {
	const char *symbol;
	std::atomic<probe *> probes{nullptr}; // newest first
	std::atomic<int> refusal{0};	      // error of a registration
};
extern probed_function probed_functions[];
void run_probes(const probed_function &function, std::initializer_list<unsigned long> arguments);

// Called first by each of these functions, with the contents of its argument registers. Any
// context.
inline void enter(probed function, std::initializer_list<unsigned long> arguments)
{
	const probed_function &f = probed_functions[static_cast<int>(function)];
	if (f.probes.load(std::memory_order_relaxed)) [[unlikely]]
		run_probes(f, arguments);
}

// From now on, registration at this function fails with an error: -ENOENT as if the kernel had no
// such symbol, -EINVAL as if it must not be probed. 0 allows it again, as does the reset.
void refuse_kprobes(std::string_view symbol, int error);

// Stops the program if a probe is still registered.
void reset_kprobes();

} // namespace hosted
