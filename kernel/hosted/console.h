// SPDX-License-Identifier: GPL-2.0-only
// The serial console, whose driver takes one lock both to print and to serve the line's interrupt.
#pragma once

#include <hosted/engine/context.h>

namespace hosted
{

// Serves an interrupt of the serial line while it lives, as the driver does: with the console's
// lock held. Whoever prints meanwhile on this CPU waits for ever, which the judge reports.
class console_interrupt
{
public:
	console_interrupt();
	~console_interrupt();
	console_interrupt(const console_interrupt &) = delete;
	console_interrupt &operator=(const console_interrupt &) = delete;

private:
	context_scope interrupt_;
	unsigned long flags_;
};

// What every message does on its way out. Context: any; nothing in an NMI, whose messages wait.
void write_to_console();

} // namespace hosted
