// SPDX-License-Identifier: GPL-2.0-only
// Moments, names and stacks as a person reads them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tarnctl/ledger/ledger.h>
#include <tarnctl/text/figures.h>

namespace tarn::ledger
{

std::string moment_text(const moment &shown, std::uint64_t peak_ns); // "at the end"

// "leaker", "interrupts".
std::string program_name(const std::string &comm);
// "leaker[46]", "interrupts".
std::string task_name(const std::string &comm, std::int32_t pid);
// "[46]", "[46, 48, 50 and 3 more]".
std::string pids_text(const std::vector<std::int32_t> &pids);
// "a, b and 3 more".
std::string names_text(const std::vector<std::string> &comms);

// The system call, interrupt or thread on whose behalf a stack runs, such as "pipe2()".
std::string origin_of(const trace::stack_table &stacks, std::uint32_t stack);
// The functions, innermost first: "alloc_file < do_sys_open". What every system call has in common
// is left out.
std::string chain_of(const trace::stack_table &stacks, std::uint32_t stack);

} // namespace tarn::ledger
