// SPDX-License-Identifier: GPL-2.0-only
// A listing that is being written. Use on one thread at a time.
#pragma once

#include <string>

#include <kernel/seq_file.h>

struct seq_file {
	std::string text;
};
