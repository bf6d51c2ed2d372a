// SPDX-License-Identifier: GPL-2.0-only
#include "client.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <stdexcept>

#include <hosted/engine/judge.h>
#include <hosted/user_memory.h>

namespace platform
{
namespace
{

// Calls an entry with a record in user memory and reads the record back.
template <class Record>
int with_record(int (*entry)(void *), Record &record)
{
	hosted::user_buffer user(sizeof(record));
	std::memcpy(user.bytes().data(), &record, sizeof(record));
	const hosted::callback_check check("memcheck entry");
	const int status = entry(user.address());
	std::memcpy(&record, user.bytes().data(), sizeof(record));
	return status;
}

} // namespace

template <class F>
F *client::link(const char *name)
{
	F *entry = module_.symbol<F>(name);
	if (!entry) {
		module_.put();
		throw std::runtime_error(std::string("the module does not export ") + name);
	}
	return entry;
}

client::client(hosted::loaded_module &module) : module_(module)
{
	if (!module_.get())
		throw std::runtime_error("the module is not loaded");
	entries_ = {
		link<int()>("tarn_memory_netlink_init"),
		link<void()>("tarn_memory_netlink_exit"),
		link<int()>("tarn_meminfo_parameter_init"),
		link<void()>("tarn_meminfo_parameter_exit"),
		link<int()>("tarn_memtrack_init"),
		link<void()>("tarn_memtrack_exit"),
		link<int(void *)>("tarn_process_leak_detect"),
		link<int(void *)>("tarn_process_leak_read"),
		link<int(void *)>("tarn_process_set_th"),
		link<int(void *)>("tarn_process_get_val"),
	};
}

client::~client()
{
	stop();
	module_.put();
}

client::results client::start()
{
	const hosted::callback_check check("start of the module's subsystems");
	started_ = true;
	return {
		.netlink = entries_.netlink_init(),
		.parameters = entries_.parameter_init(),
		.memtrack = entries_.memtrack_init(),
	};
}

void client::stop()
{
	if (!std::exchange(started_, false))
		return;
	const hosted::callback_check check("stop of the module's subsystems");
	entries_.memtrack_exit();
	entries_.parameter_exit();
	entries_.netlink_exit();
}

int client::command(std::uint32_t memtype, std::uint32_t cmd)
{
	memcheck_command record{};
	record.memtype = memtype;
	record.cmd = cmd;
	return with_record(entries_.leak_detect, record);
}

client::stacks client::read_stacks(std::uint32_t memtype, std::uint64_t size)
{
	const std::size_t room = std::min<std::uint64_t>(size, MEMCHECK_MAX_SIZE);
	hosted::user_buffer user(sizeof(memcheck_info) + room);
	stacks result{};
	result.header.type = memtype;
	result.header.size = size;
	std::memcpy(user.bytes().data(), &result.header, sizeof(result.header));
	result.status = leak_read(user.address());
	std::memcpy(&result.header, user.bytes().data(), sizeof(result.header));
	if (result.status == 0) {
		const auto payload = user.bytes().subspan(sizeof(memcheck_info));
		const auto text = payload.first(std::min<std::size_t>(result.header.size, room));
		result.text.assign(reinterpret_cast<const char *>(text.data()), text.size());
	}
	return result;
}

int client::set_thresholds(const memcheck_threshold &thresholds)
{
	memcheck_threshold record = thresholds;
	return with_record(entries_.set_th, record);
}

int client::get_thresholds(memcheck_threshold &thresholds)
{
	return with_record(entries_.get_val, thresholds);
}

int client::leak_detect(void *user_arg)
{
	const hosted::callback_check check("memcheck entry");
	return entries_.leak_detect(user_arg);
}

int client::leak_read(void *user_arg)
{
	const hosted::callback_check check("memcheck entry");
	return entries_.leak_read(user_arg);
}

int client::set_th(void *user_arg)
{
	const hosted::callback_check check("memcheck entry");
	return entries_.set_th(user_arg);
}

int client::get_val(void *user_arg)
{
	const hosted::callback_check check("memcheck entry");
	return entries_.get_val(user_arg);
}

} // namespace platform
