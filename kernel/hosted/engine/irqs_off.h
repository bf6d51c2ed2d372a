// SPDX-License-Identifier: GPL-2.0-only
// Measures how long spinlocks keep interrupts off.
#pragma once

#include <chrono>

namespace hosted
{

// Measures the current thread during its lifetime. One per thread at a time.
class irqs_off_timer
{
public:
	irqs_off_timer();
	~irqs_off_timer();
	irqs_off_timer(const irqs_off_timer &) = delete;
	irqs_off_timer &operator=(const irqs_off_timer &) = delete;

	[[nodiscard]] std::chrono::nanoseconds longest() const
	{
		return longest_;
	}

	// Called by spinlocks when interrupts go off and come on again.
	void begin();
	void end();

private:
	std::chrono::steady_clock::time_point began_;
	std::chrono::nanoseconds longest_{};
};

} // namespace hosted
