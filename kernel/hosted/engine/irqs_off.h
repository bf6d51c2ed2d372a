// SPDX-License-Identifier: GPL-2.0-only
// Measures how long spinlocks keep interrupts off.
#pragma once

#include <chrono>
#include <string_view>
#include <vector>

namespace hosted
{

// Measures the current thread during its lifetime: the processor time from the lock that turns
// interrupts off until they come on again, so that a thread that the host preempts is not charged
// for it. The measuring itself adds less than a microsecond. One per thread at a time.
class irqs_off_timer
{
public:
	irqs_off_timer();
	~irqs_off_timer();
	irqs_off_timer(const irqs_off_timer &) = delete;
	irqs_off_timer &operator=(const irqs_off_timer &) = delete;

	[[nodiscard]] std::chrono::nanoseconds longest() const;
	// The longest time that began with a lock of a class.
	[[nodiscard]] std::chrono::nanoseconds longest(std::string_view lock_class) const;

	// Called by spinlocks when interrupts go off and come on again.
	void begin(unsigned lock_class);
	void end();

private:
	unsigned lock_class_ = 0;
	std::chrono::nanoseconds began_{};
	std::vector<std::chrono::nanoseconds> longest_; // by lock class
};

} // namespace hosted
