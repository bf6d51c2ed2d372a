// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/kprobes.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <new>

#include <fmt/format.h>

#include <hosted/engine/callstack.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/opaque.h>
#include <kernel/rcupdate.h>

struct pt_regs {
	// The argument registers. A register that a function does not use keeps its old value.
	std::array<unsigned long, 8> arguments;
};

namespace hosted
{

// The real contents of a kprobe. Its links change under the registry's lock and are walked under
// RCU.
struct probe {
	magic_number<0x6b70726f> magic{};
	const char *symbol;
	kprobe_entry_handler *handler;
	probed_function *function = nullptr; // while it is registered
	unsigned long address = 0;
	std::atomic<probe *> next{nullptr};
};

constinit probed_function probed_functions[] = {
	{"folio_add_pin"}, {"try_grab_page"}, {"try_grab_folio"}};

namespace
{

constexpr unsigned long stale_register = 0xdead'4ead'dead'4ead;

constinit std::mutex registration;

probe &real(kprobe *kp)
{
	return opaque_cast<probe>(kp);
}

probed_function *find(std::string_view symbol)
{
	auto *found = std::ranges::find(probed_functions, symbol, &probed_function::symbol);
	return found == std::end(probed_functions) ? nullptr : found;
}

std::vector<std::string> report()
{
	const std::lock_guard guard(registration);
	std::vector<std::string> lines;
	for (const probed_function &f : probed_functions)
		for (const probe *p = f.probes; p; p = p->next)
			lines.push_back(fmt::format("kprobe at {}", f.symbol));
	return lines;
}

const leftover_source source(report);

void unlink(probe &p)
{
	const std::lock_guard guard(registration);
	std::atomic<probe *> *link = &p.function->probes;
	while (*link != &p)
		link = &link->load()->next;
	link->store(p.next);
	p.function = nullptr;
}

} // namespace

void run_probes(const probed_function &function, std::initializer_list<unsigned long> arguments)
{
	thread_context &ctx = self();
	pt_regs regs;
	regs.arguments.fill(stale_register);
	std::ranges::copy(arguments, regs.arguments.begin());
	ctx.preempt_count++;
	helper_rcu_read_lock();
	for (probe *p = function.probes.load(std::memory_order_acquire); p;
	     p = p->next.load(std::memory_order_acquire)) {
		const callback_check check(function.symbol);
		if (p->handler(reinterpret_cast<kprobe *>(p), &regs) != 0)
			judge_stop("kprobe", fmt::format("a handler at {} keeps it from running",
							 function.symbol));
	}
	helper_rcu_read_unlock();
	ctx.preempt_count--;
}

void refuse_kprobes(std::string_view symbol, int error)
{
	find(symbol)->refusal = error;
}

void reset_kprobes()
{
	for (probed_function &f : probed_functions) {
		if (f.probes)
			judge_stop("kprobe", "a probe is registered at the kernel's reset");
		f.refusal = 0;
	}
}

} // namespace hosted

using namespace hosted;

void helper_kprobe_init(kprobe *kp, const char *symbol, kprobe_entry_handler *handler)
{
	if (real(kp).magic.intact() && real(kp).function)
		judge_stop("kprobe", "the probe is initialised while it is registered");
	new (kp->storage) probe{.symbol = symbol, .handler = handler};
}

int register_kprobe(kprobe *kp)
{
	might_sleep("register_kprobe");
	probe &p = real(kp);
	judge_initialised(p, "kprobe", "the probe was never initialised");
	if (should_fail("register_kprobe"))
		return -ENOMEM;
	probed_function *function = find(p.symbol);
	if (!function)
		return -ENOENT;
	if (const int refusal = function->refusal)
		return refusal;
	const std::lock_guard guard(registration);
	if (p.function)
		judge_stop("kprobe", fmt::format("probe registered twice at {}", p.symbol));
	p.function = function;
	p.address = symbol_address(p.symbol, 0, 0x100);
	p.next = function->probes.load();
	function->probes = &p;
	return 0;
}

void unregister_kprobe(kprobe *kp)
{
	might_sleep("unregister_kprobe");
	probe &p = real(kp);
	if (p.magic.intact() && p.function)
		unlink(p);
	synchronize_rcu();
}

const void *helper_kprobe_addr(const kprobe *kp)
{
	return reinterpret_cast<const void *>(real(const_cast<kprobe *>(kp)).address);
}

unsigned long helper_regs_argument(const pt_regs *regs, unsigned int n)
{
	return regs->arguments.at(n);
}
