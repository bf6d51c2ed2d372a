/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/gfp.h>
#include <kernel/module.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct net;
struct sock;
struct sk_buff;

/* Header of every netlink message, in host byte order. */
struct nlmsghdr {
	u32 nlmsg_len;
	u16 nlmsg_type;
	u16 nlmsg_flags;
	u32 nlmsg_seq;
	u32 nlmsg_pid;
};

#define NLMSG_HDRLEN 16
#define MSG_DONTWAIT 0x40

KERNEL_OPAQUE(netlink_kernel_cfg, KERNEL_SIZEOF_NETLINK_KERNEL_CFG);

extern struct net init_net;

/* Returns null if the unit is in use or memory is short. Context: process, may sleep. */
struct sock *__netlink_kernel_create(struct net *net, int unit, struct module *module,
				     struct netlink_kernel_cfg *cfg);
/* Context: process, may sleep. */
void netlink_kernel_release(struct sock *sk);
/* Consumes the buffer even on failure. Returns the bytes sent or a negative error. Never sleeps if
 * nonblock is set. */
int netlink_unicast(struct sock *ssk, struct sk_buff *skb, u32 portid, int nonblock);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Sets the input callback in a zeroed configuration. The kernel calls it once per datagram in the
 * sender's context and keeps ownership of the buffer. */
void helper_netlink_cfg_set_input(struct netlink_kernel_cfg *cfg,
				  void (*input)(struct sk_buff *skb));
/* Allocates a buffer with room for a header and the payload; null on failure. payload is in
 * bytes. */
struct sk_buff *helper_nlmsg_new(size_t payload, gfp_t flags);
/* Appends a header followed by room for the payload; null if the buffer is too small. */
struct nlmsghdr *helper_nlmsg_put(struct sk_buff *skb, u32 portid, u32 seq, int type, int payload,
				  int flags);
void *helper_nlmsg_data(const struct nlmsghdr *nlh);
struct nlmsghdr *helper_nlmsg_hdr(const struct sk_buff *skb);
/* Frees a buffer that was never sent. */
void helper_nlmsg_free(struct sk_buff *skb);
unsigned int helper_skb_len(const struct sk_buff *skb);

KERNEL_C_END
