// SPDX-License-Identifier: GPL-2.0-only
// The vendor module that owns the memcheck device and starts the module's optional subsystems.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <hosted/loader.h>
#include <uapi/tarn_memcheck.h>

namespace platform
{

// Holds the module in use while it lives. Context: process.
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
	// Starts the lmkd channel, the thresholds and the trackers, whatever each returns.
	results start();
	// Stops them in the reverse order.
	void stop();

	// What user space does through the device, with its records in user memory.
	int command(std::uint32_t memtype, std::uint32_t cmd);
	struct stacks {
		int status;
		memcheck_info header; // as the module left it
		std::string text;
	};
	stacks read_stacks(std::uint32_t memtype, std::uint64_t size);
	int set_thresholds(const memcheck_threshold &thresholds);
	// The record goes both ways: the mask selects what is read.
	int get_thresholds(memcheck_threshold &thresholds);

	// The device's entries as they are, for any user address.
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
