/* SPDX-License-Identifier: GPL-2.0-only WITH Linux-syscall-note */
/*
 * The netlink protocol between the memory adapter and the low-memory killer daemon, lmkd. Host byte
 * order.
 *
 * lmkd sends a handshake, which is a header alone; its port member says where notifications go, and
 * the last handshake wins. The memory adapter then sends a notification for each event. It never
 * acknowledges a message.
 */
#pragma once

#if defined(TARN_MODULE)
#include <kernel/types.h>
#elif defined(__KERNEL__)
#include <linux/types.h>
#else
#include <stdint.h>
#endif

/* The highest of the kernel's 32 netlink protocol numbers. */
#define LMKD_NETLINK_UNIT 31

/* Message types. */
#define NETLINK_LMKD_INIT 17   /* the handshake */
#define NETLINK_LMKD_NOTIFY 18 /* a notification */

/* Values of notifications. Other modules may send values of their own. */
#define LMKD_EVENT_SLAB_LEAK 8u
#define LMKD_EVENT_VMALLOC_LEAK 16u

/* A netlink header by its layout: programs and kernels name its type and members differently. */
struct lmkd_header {
	uint32_t length; /* of the whole message, in bytes */
	uint16_t type;	 /* NETLINK_LMKD_* */
	uint16_t flags;
	uint32_t sequence; /* counts notifications */
	uint32_t port;	   /* lmkd's own in a handshake, 0 in a notification */
};

struct lmkd_notify_message {
	struct lmkd_header header;
	uint32_t value;
};

#ifdef __cplusplus
static_assert(sizeof(struct lmkd_notify_message) == 20);
#else
_Static_assert(sizeof(struct lmkd_notify_message) == 20, "no padding");
#endif
