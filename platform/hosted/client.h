// SPDX-License-Identifier: GPL-2.0-only
// The vendor module that owns the memcheck device and starts the adapter's optional subsystems.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <hosted/engine/loader.h>
#include <uapi/tarn_memcheck.h>

namespace platform
{

// Keeps the module in use during its lifetime. Context: process.
class client
{
public:
	// Throws if the module is not loaded or does not export what the client links to.
	explicit client(hosted::loaded_module &module);
	// Stops what start() started.
	~client();
	client(const client &) = delete;
	client &operator=(const client &) = delete;

	struct results {
		int netlink;
		int parameters;
		int memtrack;
	};
	// Starts the lmkd channel, the thresholds and the trackers, and continues past failures.
	results start();
	// Stops them in reverse order.
	void stop();

	// Calls that user space makes through the device, with records in user memory.
	int command(std::uint32_t memtype, std::uint32_t cmd);
	struct stacks {
		int status;
		memcheck_info header; // as the module returned it
		std::string text;
	};
	stacks read_stacks(std::uint32_t memtype, std::uint64_t size);
	int set_thresholds(const memcheck_threshold &thresholds);
	// Reads the thresholds that the record's mask selects into the record.
	int get_thresholds(memcheck_threshold &thresholds);

	// The device's bare entries, for any user address.
	int leak_detect(void *user_arg);
	int leak_read(void *user_arg);
	int set_th(void *user_arg);
	int get_val(void *user_arg);

private:
	template <class F>
	F *link(const char *name);

	hosted::loaded_module &module_;
	bool started_ = false;
	struct {
		int (*netlink_init)();
		void (*netlink_exit)();
		int (*parameter_init)();
		void (*parameter_exit)();
		int (*memtrack_init)();
		void (*memtrack_exit)();
		int (*leak_detect)(void *);
		int (*leak_read)(void *);
		int (*set_th)(void *);
		int (*get_val)(void *);
	} entries_;
};

} // namespace platform
