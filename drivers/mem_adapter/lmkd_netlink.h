// SPDX-License-Identifier: GPL-2.0-only
// The wire protocol with lmkd, shared by the channel and by those who send through it.
#pragma once

#include <kernel/types.h>

// Netlink unit of the channel, the highest of the kernel's 32.
inline constexpr int lmkd_netlink_unit = 31;

inline constexpr u16 NETLINK_LMKD_INIT = 17;   // lmkd's handshake: nlmsg_pid names its port
inline constexpr u16 NETLINK_LMKD_NOTIFY = 18; // the module's notification: 4 bytes of value

inline constexpr unsigned int LMKD_EVENT_SLAB_LEAK = 8;
inline constexpr unsigned int LMKD_EVENT_VMALLOC_LEAK = 16;

KERNEL_C_BEGIN

extern unsigned int netlink_init;

KERNEL_C_END
