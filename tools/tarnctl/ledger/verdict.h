// SPDX-License-Identifier: GPL-2.0-only
// The rules by which a task is accused of a leak. docs/hunt.md gives their reasons.
#pragma once

#include <cstdint>
#include <string>

#include <tarnctl/ledger/holding.h>

namespace tarn::ledger
{

enum class finding {
	innocent,
	leaks,		 // old objects live at the end, and they became more
	keeps_till_exit, // most objects go by the task's exit, and they became more until then
	uncertain,	 // it looks like one of both, but the recording cannot show it
};

struct judgement {
	finding found = finding::innocent;
	std::string reason; // the evidence, or why it is uncertain
	double objects_per_second = 0;
	double bytes_per_second = 0;
};

judgement judge(const holding &h);

} // namespace tarn::ledger
