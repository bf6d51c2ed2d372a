// SPDX-License-Identifier: GPL-2.0-only
// The netlink channel on which lmkd learns about leaks.
//
// Locks: channel_lock, a mutex, serialises opening and closing and protects writes of sk. Inside it
// only the locks of the kernel's socket calls are taken. Notifications take no lock: they read sk
// in an RCU read section, and closing waits for those sections before it releases the socket.
// Closing does not wait for the input callback of a process's datagram, which may therefore store
// its port after the channel has closed. That is harmless: the module's memory stays, since the
// process's socket keeps the module loaded, and the next handshake overwrites the port.
#include <kernel/atomic.h>
#include <kernel/mutex.h>
#include <kernel/netlink.h>
#include <kernel/rcupdate.h>
#include <kernel/string.h>
#include <uapi/tarn_lmkd.h>

#include "log.h"
#include "mem_adapter.h"
#include "subsystems.h"

KERNEL_C_BEGIN
void tarn_netlink_lmkd_ready(struct sk_buff *skb);
KERNEL_C_END

// 1 once the channel has been open; closing it does not clear it.
constinit unsigned int netlink_init = 0;

namespace
{

// What fits behind the header in a message of the kernel's default size, 3712 bytes.
constexpr size_t message_payload = 3712 - NLMSG_HDRLEN;
static_assert(sizeof(lmkd_header) == NLMSG_HDRLEN);

constinit struct mutex channel_lock = {};
constinit struct lock_class_key channel_lock_key = {};
// Written under channel_lock, read in RCU read sections.
constinit struct sock *sk = nullptr;
constinit struct netlink_kernel_cfg nlcfg = {};
// lmkd's port. Tolerated race: a single word, written by each handshake and read by each
// notification without a lock; the last handshake wins.
constinit u32 lmkd_nl_pid = 0;
constinit atomic_t seq = {};

} // namespace

void lmkd_netlink_load(void)
{
	__mutex_init(&channel_lock, "lmkd channel_lock", &channel_lock_key);
	helper_netlink_cfg_set_input(&nlcfg, tarn_netlink_lmkd_ready);
}

int tarn_memory_netlink_init(void)
{
	const mutex_guard guard(channel_lock);

	if (sk) {
		MEM_INFO("netlink is open already.\n");
		return 0;
	}
	struct sock *opened =
		__netlink_kernel_create(&init_net, LMKD_NETLINK_UNIT, &__this_module, &nlcfg);
	if (!opened) {
		MEM_ERR("netlink_kernel_create error.\n");
		return -1;
	}
	MEM_INFO("netlink_kernel_create success.\n");
	// Release: pairs with the acquire in lmkd_notify(), which dereferences the socket.
	__atomic_store_n(&sk, opened, __ATOMIC_RELEASE);
	WRITE_ONCE(netlink_init, 1u);
	return 0;
}

void tarn_memory_netlink_exit(void)
{
	const mutex_guard guard(channel_lock);
	struct sock *closing = sk;

	if (closing) {
		WRITE_ONCE(sk, static_cast<struct sock *>(nullptr));
		synchronize_rcu();
		netlink_kernel_release(closing);
	}
	MEM_INFO("netlink_kernel_release.\n");
}

// The socket's input callback, called once per datagram. The kernel passes on what user space sent,
// so a datagram may be shorter than a header. Context: process, the sender's.
void tarn_netlink_lmkd_ready(struct sk_buff *skb)
{
	const unsigned int len = helper_skb_len(skb);

	if (len < NLMSG_HDRLEN) {
		MEM_INFO("message of %u bytes ignored\n", len);
		return;
	}
	const struct nlmsghdr *nlh = helper_nlmsg_hdr(skb);

	if (nlh->nlmsg_type != NETLINK_LMKD_INIT) {
		MEM_INFO("type: %d not supported\n", nlh->nlmsg_type);
		return;
	}
	WRITE_ONCE(lmkd_nl_pid, nlh->nlmsg_pid);
	MEM_INFO("NETLINK_LMKD_INIT: lmkd_nl_pid: %d\n", static_cast<int>(nlh->nlmsg_pid));
}

int lmkd_notify(unsigned int value)
{
	const rcu_read_guard guard;
	// Acquire: pairs with the release in tarn_memory_netlink_init().
	struct sock *channel = __atomic_load_n(&sk, __ATOMIC_ACQUIRE);

	if (!channel) {
		MEM_ERR("netlink is not open, value: %u\n", value);
		return -1;
	}
	struct sk_buff *skb = helper_nlmsg_new(message_payload, GFP_ATOMIC | __GFP_ZERO);
	if (!skb) {
		MEM_ERR("NETLINK_LMKD_INIT nlmsg_new fail\n");
		return -1;
	}
	struct nlmsghdr *nlh = helper_nlmsg_put(skb, 0, static_cast<u32>(atomic_fetch_inc(&seq)),
						NETLINK_LMKD_NOTIFY, sizeof(value), 0);
	memcpy(helper_nlmsg_data(nlh), &value, sizeof(value));

	const u32 port = READ_ONCE(lmkd_nl_pid);
	const int ret = netlink_unicast(channel, skb, port, MSG_DONTWAIT);

	MEM_INFO("port:%d type: %d, value: %u, ret: %d\n", static_cast<int>(port),
		 NETLINK_LMKD_NOTIFY, value, ret < 0 ? ret : 0);
	return 0;
}
