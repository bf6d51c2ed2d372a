// SPDX-License-Identifier: GPL-2.0-only
// How long spinlocks keep interrupts off.
#pragma once

#include <chrono>

namespace hosted
{

// Watches the current thread while it lives. One at a time on a thread.
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

	// For the spinlocks: interrupts go off and on again.
	void begin();
	void end();

private:
	std::chrono::steady_clock::time_point began_;
	std::chrono::nanoseconds longest_{};
};

} // namespace hosted
