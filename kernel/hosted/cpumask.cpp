// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/cpumask.h>

#include <array>

#include <fmt/format.h>

#include <hosted/engine/judge.h>
#include <kernel/cpumask.h>

namespace
{

constexpr unsigned word_bits = 64;
constexpr unsigned cpus_at_boot = 8;

constinit std::array<unsigned long, (KERNEL_NR_CPUS + word_bits - 1) / word_bits> online_cpus{};

} // namespace

void hosted::set_cpu_online(unsigned cpu, bool online)
{
	if (cpu >= KERNEL_NR_CPUS)
		judge_stop("CPU", fmt::format("CPU {} does not exist", cpu));
	unsigned long &word = online_cpus[cpu / word_bits];
	const unsigned long bit = 1UL << cpu % word_bits;

	if (online)
		__atomic_fetch_or(&word, bit, __ATOMIC_RELAXED);
	else
		__atomic_fetch_and(&word, ~bit, __ATOMIC_RELAXED);
}

void hosted::reset_cpus()
{
	for (unsigned cpu = 0; cpu < KERNEL_NR_CPUS; cpu++)
		set_cpu_online(cpu, cpu < cpus_at_boot);
}

const unsigned long *helper_online_cpus(void)
{
	return online_cpus.data();
}
