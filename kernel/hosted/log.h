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
	std::string text; // as printed, the line end (if any) included
};

// Thread safe. The log keeps the newest 100,000 records.
void add_log_record(log_record record);

// The records since the last call, and removes them. Thread safe.
std::vector<log_record> take_log();

// Calls a function after each record while it lives, on the thread that logs and in its context.
// One at a time.
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

// The kernel's formatting: printf's without floating point and %n; %pS prints a symbol, %px bare
// hexadecimal. Thread safe.
std::string format(const char *fmt, va_list args);

// Whether a kernel warning has tainted the kernel, and the way back. Thread safe.
bool tainted_warn();
void clear_taint();

} // namespace hosted
