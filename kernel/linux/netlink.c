// SPDX-License-Identifier: GPL-2.0-only
#include <linux/netlink.h>
#include <net/netlink.h>

#include <kernel/netlink.h>

void helper_netlink_cfg_set_input(struct netlink_kernel_cfg *cfg,
				  void (*input)(struct sk_buff *skb))
{
	cfg->input = input;
}

struct sk_buff *helper_nlmsg_new(size_t payload, gfp_t flags)
{
	return nlmsg_new(payload, flags);
}

struct nlmsghdr *helper_nlmsg_put(struct sk_buff *skb, u32 portid, u32 seq, int type, int payload,
				  int flags)
{
	return nlmsg_put(skb, portid, seq, type, payload, flags);
}

void *helper_nlmsg_data(const struct nlmsghdr *nlh)
{
	return nlmsg_data(nlh);
}

struct nlmsghdr *helper_nlmsg_hdr(const struct sk_buff *skb)
{
	return nlmsg_hdr(skb);
}

void helper_nlmsg_free(struct sk_buff *skb)
{
	nlmsg_free(skb);
}

unsigned int helper_skb_len(const struct sk_buff *skb)
{
	return skb->len;
}
