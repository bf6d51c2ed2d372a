// SPDX-License-Identifier: GPL-2.0-only
#include <kernel/stacktrace.h>

#include <algorithm>
#include <vector>

#include <hosted/engine/context.h>

unsigned int stack_trace_save(unsigned long *store, unsigned int size, unsigned int skipnr)
{
	const std::vector<unsigned long> &stack = hosted::self().stack;
	if (skipnr >= stack.size())
		return 0;
	const auto saved = std::min<std::size_t>(size, stack.size() - skipnr);
	std::copy_n(stack.rbegin() + skipnr, saved, store);
	return static_cast<unsigned>(saved);
}
