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

/* The header that every netlink message starts with, host byte order. */
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

/* Returns null when the unit is taken or memory is short. Context: process, may sleep. */
struct sock *__netlink_kernel_create(struct net *net, int unit, struct module *module,
				     struct netlink_kernel_cfg *cfg);
/* Context: process, may sleep. */
void netlink_kernel_release(struct sock *sk);
/* Takes the buffer whatever the outcome. Returns the bytes sent or a negative error. Never sleeps
 * with nonblock set. */
int netlink_unicast(struct sock *ssk, struct sk_buff *skb, u32 portid, int nonblock);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Sets the input callback of a zeroed configuration. The kernel calls it once a datagram, in the
 * sender's context; the buffer stays the kernel's. */
void helper_netlink_cfg_set_input(struct netlink_kernel_cfg *cfg,
				  void (*input)(struct sk_buff *skb));
/* A buffer with room for a header and payload bytes; null on failure. */
struct sk_buff *helper_nlmsg_new(size_t payload, gfp_t flags);
/* Puts a header with room for payload bytes behind it; null when there is no room. */
struct nlmsghdr *helper_nlmsg_put(struct sk_buff *skb, u32 portid, u32 seq, int type, int payload,
				  int flags);
void *helper_nlmsg_data(const struct nlmsghdr *nlh);
struct nlmsghdr *helper_nlmsg_hdr(const struct sk_buff *skb);
/* Frees a buffer that was never sent. */
void helper_nlmsg_free(struct sk_buff *skb);
unsigned int helper_skb_len(const struct sk_buff *skb);

KERNEL_C_END
