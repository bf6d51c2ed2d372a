// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/words.h>

#include <algorithm>
#include <array>
#include <string_view>

#include <fmt/format.h>

#include <tarnctl/terminal/printable.h>

namespace tarn::ledger
{

namespace
{

using namespace std::literals;

constexpr std::size_t names_shown = 3;

constexpr std::array syscall_prefixes = {
	"__arm64_sys_"sv,	"__arm64_compat_sys_"sv, "__x64_sys_"sv, "__ia32_sys_"sv,
	"__ia32_compat_sys_"sv, "__riscv_sys_"sv,	 "__se_sys_"sv,	 "__do_sys_"sv,
};

// The outermost frames, through which every system call, exception or thread comes in.
constexpr std::array entry_prefixes = {
	"el0"sv,
	"el1h"sv,
	"do_el0_svc"sv,
	"invoke_syscall"sv,
	"el0_svc_common"sv,
	"do_syscall"sv,
	"entry_SYSCALL"sv,
	"x64_sys_call"sv,
	"ret_from_fork"sv,
	"syscall_exit"sv,
	"asm_"sv,
	"call_on_irq_stack"sv,
	"__do_softirq"sv,
	"handle_softirqs"sv,
};

bool is_entry(std::string_view function)
{
	return std::ranges::any_of(entry_prefixes, [function](std::string_view prefix) {
		return function.starts_with(prefix);
	});
}

} // namespace

std::string moment_text(const moment &shown, std::uint64_t peak_ns)
{
	switch (shown.at) {
	case moment::kind::peak:
		return "at the peak, " + seconds_text(peak_ns);
	case moment::kind::time:
		return "at " + seconds_text(shown.ns);
	case moment::kind::end:
		break;
	}
	return "at the end";
}

std::string program_name(const std::string &comm)
{
	return comm.empty() ? "interrupts" : printable(comm);
}

std::string task_name(const std::string &comm, std::int32_t pid)
{
	return comm.empty() ? "interrupts" : fmt::format("{}[{}]", printable(comm), pid);
}

std::string pids_text(const std::vector<std::int32_t> &pids)
{
	std::string text = "[";

	for (std::size_t i = 0; i < pids.size() && i < names_shown; i++)
		text += fmt::format("{}{}", i == 0 ? "" : ", ", pids[i]);
	if (pids.size() > names_shown)
		text += fmt::format(" and {} more", pids.size() - names_shown);
	return text + "]";
}

std::string names_text(const std::vector<std::string> &comms)
{
	std::string text;

	for (std::size_t i = 0; i < comms.size() && i < names_shown; i++)
		text += (i == 0 ? "" : ", ") + program_name(comms[i]);
	if (comms.size() > names_shown)
		text += fmt::format(" and {} more", comms.size() - names_shown);
	return text;
}

std::string origin_of(const trace::stack_table &stacks, std::uint32_t stack)
{
	std::string_view outermost;

	for (const std::uint32_t frame : stacks[stack]) {
		const std::string_view function = stacks.frames()[frame].function;

		for (const std::string_view prefix : syscall_prefixes) {
			if (function.starts_with(prefix) && prefix != "__do_sys_")
				return std::string(function.substr(prefix.size())) + "()";
		}
		if (!is_entry(function))
			outermost = function;
	}
	return std::string(outermost);
}

std::string chain_of(const trace::stack_table &stacks, std::uint32_t stack)
{
	std::string chain;

	for (const std::uint32_t frame : stacks[stack]) {
		const std::string &function = stacks.frames()[frame].function;

		if (!chain.empty() && is_entry(function))
			continue;
		chain += (chain.empty() ? "" : " < ") + printable(function);
	}
	return chain;
}

} // namespace tarn::ledger
