// SPDX-License-Identifier: GPL-2.0-only
// Waiting for a signal that asks the program to end.
#pragma once

#include <chrono>
#include <csignal>

#include <tarnctl/device/file_descriptor.h>

namespace tarn
{

// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process. A signal that was not waited
// for does so when this object is destroyed.
class stop_signals
{
public:
	stop_signals();
	~stop_signals();
	stop_signals(const stop_signals &) = delete;
	stop_signals &operator=(const stop_signals &) = delete;

	// True if a signal came within this time; a negative time means forever.
	bool wait(std::chrono::milliseconds time);
	// The same, but also returns when the file can be read, and sets readable.
	bool wait(std::chrono::milliseconds time, int file, bool &readable);

private:
	sigset_t before_ = {};
	file_descriptor signals_;
};

} // namespace tarn
