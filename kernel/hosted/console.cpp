// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/console.h>

#include <kernel/spinlock.h>

namespace hosted
{
namespace
{

struct port {
	port()
	{
		helper_raw_spin_lock_init(&lock, "console port", &key);
	}

	lock_class_key key{};
	raw_spinlock_t lock{};
};

port &the_port()
{
	static port instance;
	return instance;
}

} // namespace

console_interrupt::console_interrupt() NO_THREAD_SAFETY_ANALYSIS
	: interrupt_(context_kind::hardirq, self().cpu),
	  flags_(_raw_spin_lock_irqsave(&the_port().lock))
{
}

console_interrupt::~console_interrupt() NO_THREAD_SAFETY_ANALYSIS
{
	_raw_spin_unlock_irqrestore(&the_port().lock, flags_);
}

void write_to_console()
{
	if ((self().preempt_count & nmi_mask) != 0)
		return;
	const irqsave_guard guard(the_port().lock);
}

} // namespace hosted
