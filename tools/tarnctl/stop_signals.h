// SPDX-License-Identifier: GPL-2.0-only
// Being asked to end, as something to wait for.
#pragma once

#include <chrono>
#include <csignal>

#include "file_descriptor.h"

namespace tarn
{

// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process. One that nobody waited for
// does so afterwards.
class stop_signals
{
public:
	stop_signals();
	~stop_signals();
	stop_signals(const stop_signals &) = delete;
	stop_signals &operator=(const stop_signals &) = delete;

	// True if a signal came before the time was over.
	bool wait(std::chrono::milliseconds time);
	// As before; ends early also when a file can be read from (readable is set then).
	bool wait(std::chrono::milliseconds time, int file, bool &readable);

private:
	sigset_t before_ = {};
	file_descriptor signals_;
};

} // namespace tarn
