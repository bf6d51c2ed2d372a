// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/netlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/loader.h>
#include <hosted/engine/opaque.h>
#include <kernel/netlink.h>

struct net {
};

struct sock {
	int unit;
	void (*input)(sk_buff *skb);
	const struct module *owner; // null for the kernel's own
};

// A heap buffer of the exact size, so that reads past the datagram are detected.
struct sk_buff {
	std::vector<std::byte> data;
	unsigned int len;
};

struct net init_net;

namespace hosted
{
namespace
{

constexpr std::size_t align(std::size_t length)
{
	return (length + 3) & ~std::size_t{3};
}

} // namespace

// All sockets of all units, and the buffers that the module holds.
class netlink_network
{
public:
	static netlink_network &get()
	{
		static netlink_network network;
		return network;
	}

	sock *create(int unit, void (*input)(sk_buff *skb), const struct module *owner)
	{
		const std::lock_guard guard(lock_);
		if (unit < 0 || unit >= static_cast<int>(kernel_.size()) || kernel_[unit])
			return nullptr;
		kernel_[unit] = std::make_shared<sock>(sock{unit, input, owner});
		return kernel_[unit].get();
	}

	// Does not wait for input callbacks: each holds a reference, and goes on.
	void release(const sock *sk)
	{
		const std::lock_guard guard(lock_);
		kernel_[unit_of(sk)].reset();
	}

	int send(const sock *from, std::unique_ptr<sk_buff> skb, std::uint32_t port, bool nonblock)
	{
		std::unique_lock guard(lock_);
		const int unit = unit_of(from);
		if (port == 0) {
			guard.unlock();
			return input(unit, *skb);
		}
		for (;;) {
			const auto to = ports_.find({unit, port});
			if (to == ports_.end())
				return -ECONNREFUSED;
			auto &[queue, capacity] = to->second;
			if (queue.size() < capacity) {
				skb->data.resize(skb->len);
				queue.push_back(std::move(skb->data));
				return static_cast<int>(skb->len);
			}
			if (nonblock)
				return -EAGAIN;
			changed_.wait(guard);
		}
	}

	// Runs the input callback of a unit's kernel socket on a buffer that the kernel keeps.
	int input(int unit, sk_buff &skb)
	{
		std::shared_ptr<const sock> sk;
		{
			const std::lock_guard guard(lock_);
			sk = kernel_[unit];
			if (!sk || !sk->input)
				return -ECONNREFUSED;
			running_++;
		}
		const auto length = static_cast<int>(skb.len);
		{
			const callback_check check("netlink input");
			sk->input(&skb);
		}
		const std::lock_guard guard(lock_);
		running_--;
		return length;
	}

	// Returns the module that the process's socket keeps loaded, if any.
	const struct module *bind(int unit, std::uint32_t port, std::size_t capacity)
	{
		const std::lock_guard guard(lock_);
		if (unit < 0 || unit >= static_cast<int>(kernel_.size()) || !kernel_[unit])
			throw std::invalid_argument("no kernel socket of netlink unit " +
						    std::to_string(unit));
		const struct module *owner = kernel_[unit]->owner;
		if (port == 0 || !ports_.try_emplace({unit, port}, queue{{}, capacity}).second)
			throw std::invalid_argument("netlink port " + std::to_string(port) +
						    " cannot be bound");
		return owner && try_module_get(owner) ? owner : nullptr;
	}

	void unbind(int unit, std::uint32_t port)
	{
		const std::lock_guard guard(lock_);
		ports_.erase({unit, port});
		changed_.notify_all();
	}

	std::optional<std::vector<std::byte>> receive(int unit, std::uint32_t port)
	{
		const std::lock_guard guard(lock_);
		auto &datagrams = ports_.at({unit, port}).datagrams;
		if (datagrams.empty())
			return std::nullopt;
		std::optional datagram = std::move(datagrams.front());
		datagrams.pop_front();
		changed_.notify_all();
		return datagram;
	}

	sk_buff *hand_out(std::unique_ptr<sk_buff> skb)
	{
		const std::lock_guard guard(lock_);
		sk_buff *const address = skb.get();
		handed_out_.emplace(address, std::move(skb));
		return address;
	}

	std::unique_ptr<sk_buff> take_back(sk_buff *skb)
	{
		const std::lock_guard guard(lock_);
		auto node = handed_out_.extract(skb);
		if (!node)
			judge_stop("netlink buffer",
				   "the buffer to send or free is not the module's");
		return std::move(node.mapped());
	}

	std::vector<std::string> leftovers()
	{
		const std::lock_guard guard(lock_);
		std::vector<std::string> lines;
		for (const auto &sk : kernel_)
			if (sk)
				lines.push_back("netlink socket of unit " +
						std::to_string(sk->unit));
		if (running_ != 0)
			lines.push_back(std::to_string(running_) + " netlink input callback(s)");
		if (!handed_out_.empty())
			lines.push_back(std::to_string(handed_out_.size()) + " netlink buffer(s)");
		return lines;
	}

private:
	struct queue {
		std::deque<std::vector<std::byte>> datagrams;
		std::size_t capacity;
	};

	// The unit of an open socket. The pointer may be stale, so it is only compared, never
	// followed.
	int unit_of(const sock *sk)
	{
		const auto slot =
			std::ranges::find_if(kernel_, [&](const auto &k) { return k.get() == sk; });
		if (!sk || slot == kernel_.end())
			judge_stop("netlink socket", "use of a socket that is not open");
		return static_cast<int>(slot - kernel_.begin());
	}

	std::mutex lock_;
	std::condition_variable changed_; // a queue has room, a port closed
	std::array<std::shared_ptr<sock>, 32> kernel_;
	unsigned running_ = 0; // input callbacks
	std::map<std::pair<int, std::uint32_t>, queue> ports_;
	std::unordered_map<const sk_buff *, std::unique_ptr<sk_buff>> handed_out_;
};

namespace
{

const leftover_source netlink_leftovers([] { return netlink_network::get().leftovers(); });

struct config {
	void (*input)(sk_buff *skb);
};

} // namespace

netlink_socket::netlink_socket(int unit, std::uint32_t port, std::size_t capacity)
	: unit_(unit), port_(port), owner_(netlink_network::get().bind(unit, port, capacity))
{
}

netlink_socket::~netlink_socket()
{
	netlink_network::get().unbind(unit_, port_);
	if (owner_)
		module_put(owner_);
}

int netlink_socket::send(std::span<const std::byte> datagram)
{
	might_sleep("netlink send of a process");
	sk_buff skb{{datagram.begin(), datagram.end()}, static_cast<unsigned int>(datagram.size())};
	const int result = netlink_network::get().input(unit_, skb);
	return result < 0 ? result : 0;
}

std::optional<std::vector<std::byte>> netlink_socket::receive()
{
	return netlink_network::get().receive(unit_, port_);
}

} // namespace hosted

using hosted::netlink_network;

void helper_netlink_cfg_set_input(struct netlink_kernel_cfg *cfg,
				  void (*input)(struct sk_buff *skb))
{
	hosted::store_opaque(cfg, hosted::config{input});
}

struct sock *__netlink_kernel_create(struct net *, int unit, struct module *owner,
				     struct netlink_kernel_cfg *cfg)
{
	hosted::might_sleep("netlink_kernel_create");
	if (hosted::should_fail("netlink_kernel_create"))
		return nullptr;
	const auto config = hosted::load_opaque<hosted::config>(cfg);
	return netlink_network::get().create(unit, config.input, owner);
}

void netlink_kernel_release(struct sock *sk)
{
	hosted::might_sleep("netlink_kernel_release");
	netlink_network::get().release(sk);
}

int netlink_unicast(struct sock *ssk, struct sk_buff *skb, u32 portid, int nonblock)
{
	auto owned = netlink_network::get().take_back(skb);
	if (!nonblock)
		hosted::might_sleep("netlink_unicast");
	return netlink_network::get().send(ssk, std::move(owned), portid, nonblock != 0);
}

struct sk_buff *helper_nlmsg_new(size_t payload, gfp_t flags)
{
	// Memory that is not zeroed on request must not happen to be zero.
	constexpr std::byte stale{0x5a};

	if (flags & __GFP_DIRECT_RECLAIM)
		hosted::might_sleep("nlmsg_new");
	if (hosted::should_fail("nlmsg_new"))
		return nullptr;
	const size_t capacity = hosted::align(NLMSG_HDRLEN + payload);
	return netlink_network::get().hand_out(std::make_unique<sk_buff>(
		sk_buff{std::vector(capacity, flags & __GFP_ZERO ? std::byte{0} : stale), 0}));
}

struct nlmsghdr *helper_nlmsg_put(struct sk_buff *skb, u32 portid, u32 seq, int type, int payload,
				  int flags)
{
	const size_t length = NLMSG_HDRLEN + static_cast<size_t>(payload);
	const size_t taken = hosted::align(length);
	if (payload < 0 || taken > skb->data.size() - skb->len)
		return nullptr;
	std::byte *start = skb->data.data() + skb->len;
	skb->len += static_cast<unsigned int>(taken);
	std::memset(start + length, 0, taken - length);
	return new (start) nlmsghdr{static_cast<u32>(length), static_cast<u16>(type),
				    static_cast<u16>(flags), seq, portid};
}

void *helper_nlmsg_data(const struct nlmsghdr *nlh)
{
	return const_cast<nlmsghdr *>(nlh + 1);
}

struct nlmsghdr *helper_nlmsg_hdr(const struct sk_buff *skb)
{
	return reinterpret_cast<nlmsghdr *>(const_cast<std::byte *>(skb->data.data()));
}

void helper_nlmsg_free(struct sk_buff *skb)
{
	netlink_network::get().take_back(skb);
}

unsigned int helper_skb_len(const struct sk_buff *skb)
{
	return skb->len;
}
