// SPDX-License-Identifier: GPL-2.0-only
// A booted machine with the module loaded, and helpers for its tests.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/loader.h>
#include <hosted/engine/log.h>
#include <hosted/engine/machine.h>
#include <hosted/sysfs.h>
#include <hosted/user_memory.h>
#include <platform/hosted/client.h>
#include <platform/hosted/ember.h>

namespace module_tests
{

using lines = std::vector<std::string>;

inline constexpr int log_error = 3;
inline constexpr int log_warning = 4;
inline constexpr int log_info = 6;
inline constexpr int log_any = -1;

// A record in user memory.
template <class Record>
struct user_record : hosted::user_buffer {
	explicit user_record(const Record &value) : user_buffer(sizeof(Record))
	{
		std::memcpy(bytes().data(), &value, sizeof(Record));
	}
	Record value()
	{
		Record record;
		std::memcpy(&record, bytes().data(), sizeof(Record));
		return record;
	}
};

// A machine without the module.
class machine_test : public testing::Test
{
protected:
	machine_test()
	{
		hosted::take_log();
		platform::take_ember_events();
		platform::take_ember_calls();
	}

	// The lines of the kernel log since the last forget_log() that have a level and contain a
	// text. The module's prefix is shortened to "[function] ".
	lines log_lines(int level, std::string_view text = {})
	{
		lines found;

		std::ranges::move(hosted::take_log(), std::back_inserter(log_));
		for (const hosted::log_record &record : log_) {
			std::string line = without_source_line(record.text);
			if ((level == log_any || record.level == level) &&
			    line.find(text) != std::string::npos)
				found.push_back(std::move(line));
		}
		return found;
	}
	lines errors(std::string_view text = {})
	{
		return log_lines(log_error, text);
	}
	void forget_log()
	{
		hosted::take_log();
		log_.clear();
	}

	// Returns a file's text, or the error number as text.
	static std::string read_file(const std::string &path)
	{
		std::string text;
		const int error = hosted::read_file(path, text);

		return error ? std::to_string(error) : text;
	}
	static std::string parameter_path(const std::string &name)
	{
		return "/sys/module/tarn_mem_adapter/parameters/" + name;
	}
	static std::string parameter(const std::string &name)
	{
		return read_file(parameter_path(name));
	}
	static long set_parameter(const std::string &name, const std::string &text)
	{
		return hosted::write_file(parameter_path(name), text);
	}

private:
	static std::string without_source_line(std::string text)
	{
		constexpr std::string_view prefix = "[MEM_ADAPTER] ";
		if (!text.starts_with(prefix))
			return text;
		const auto colon = text.find(':');
		text.replace(colon, text.find(": ", colon + 1) + 1 - colon, "]");
		return text.replace(0, prefix.size(), "[");
	}

	hosted::machine machine_;
	std::vector<hosted::log_record> log_;
};

// The module is loaded and its client attached; the client has not started anything yet.
class module_test : public machine_test
{
protected:
	// Starts the optional subsystems and checks that all of them come up.
	void start()
	{
		const auto results = client.start();
		ASSERT_EQ(results.netlink | results.parameters | results.memtrack, 0);
	}

	// Calls an export: exported<int(unsigned)>("lmkd_notify")(8).
	template <class F>
	F *exported(const char *name) const
	{
		return module.symbol<F>(name);
	}
	// The same for a function or object that is not exported.
	template <class T>
	T *internal(const char *name) const
	{
		return module.internal<T>(name);
	}

	hosted::loaded_module module;
	platform::client client{module};
};

} // namespace module_tests
