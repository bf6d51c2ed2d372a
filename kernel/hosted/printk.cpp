// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <fmt/format.h>
#include <hosted/console.h>
#include <hosted/engine/context.h>
#include <hosted/engine/log.h>
#include <hosted/task_struct.h>
#include <kernel/printk.h>

using namespace hosted;

namespace
{

constexpr int warning_level = 4; // also that of a message without a level

constinit std::atomic<bool> tainted{false};

} // namespace

namespace hosted
{

bool tainted_warn()
{
	return tainted.load(std::memory_order_relaxed);
}

void clear_taint()
{
	tainted.store(false, std::memory_order_relaxed);
}

void warn(const char *file, int line)
{
	write_to_console();
	tainted.store(true, std::memory_order_relaxed);
	const thread_context &ctx = self();
	add_log_record({warning_level, fmt::format("WARNING: CPU: {} PID: {} at {}:{}\n", ctx.cpu,
						   ctx.task->pid, file, line)});
}

} // namespace hosted

int _printk(const char *fmt, ...)
{
	int level = warning_level;
	if (fmt[0] == KERN_SOH[0] && fmt[1] >= '0' && fmt[1] <= '7') {
		level = fmt[1] - '0';
		fmt += 2;
	}
	va_list args;
	va_start(args, fmt);
	std::string text = format(fmt, args);
	va_end(args);
	const int length = static_cast<int>(text.size());
	write_to_console();
	add_log_record({level, std::move(text)});
	return length;
}

void helper_warn_tarn_mapcount(void)
{
	warn("drivers/mem_adapter/tarn_mapcount.cpp", 1);
}
