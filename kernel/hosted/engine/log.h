// SPDX-License-Identifier: GPL-2.0-only
// The kernel log.
#pragma once

#include <cstdarg>
#include <functional>
#include <string>
#include <vector>

namespace hosted
{

struct log_record {
	int level;	  // 3 error, 4 warning, 6 information
	std::string text; // as printed, including a newline
};

// Thread safe. The log keeps the newest 100,000 records.
void add_log_record(log_record record);

// Removes and returns the records since the last call. Thread safe.
std::vector<log_record> take_log();

// While it exists, calls a function after each record, on the thread that logs and in its context.
// Only one at a time.
class log_watch
{
public:
	explicit log_watch(std::function<void(const std::string &text)> function);
	~log_watch();
	log_watch(const log_watch &) = delete;
	log_watch &operator=(const log_watch &) = delete;

private:
	std::function<void(const std::string &text)> function_;
	friend void add_log_record(log_record record);
};

// The kernel's formatting: printf without floating point and %n; %pS prints a symbol, %p hashes
// an address and %px does not. Thread safe.
std::string format(const char *fmt, va_list args);

// Issues a kernel warning, attributed to a line of source. Thread safe.
void warn(const char *file, int line);
// Whether a kernel warning has tainted the kernel; clear_taint resets it. Thread safe.
bool tainted_warn();
void clear_taint();

} // namespace hosted
