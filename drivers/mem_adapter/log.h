// SPDX-License-Identifier: GPL-2.0-only
// The module's log lines: "[MEM_ADAPTER] function:line: message". Messages include their newline;
// some have none. Context: any; never sleeps.
#pragma once

#include <kernel/printk.h>

#define MEM_LOG(level, step, fmt, ...)                                                             \
	_printk(level "[MEM_ADAPTER] %s:%d: " fmt, step, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define MEM_ERR(fmt, ...) MEM_LOG(KERN_ERR, __func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define MEM_INFO(fmt, ...) MEM_LOG(KERN_INFO, __func__, fmt __VA_OPT__(, ) __VA_ARGS__)
