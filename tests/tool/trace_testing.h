// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/error.h>
#include <tarnctl/trace/event.h>
#include <tarnctl/trace/parse.h>
#include <tarnctl/trace/reader.h>
#include <tarnctl/trace/stacks.h>

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace tarn::trace
{

// A file with that content while the object lives.
class temp_file
{
public:
	explicit temp_file(std::string_view content)
	{
		const int fd = mkstemp(path_.data());
		if (fd >= 0)
			close(fd);
		std::ofstream(path_, std::ios::binary) << content;
	}

	~temp_file()
	{
		unlink(path_.c_str());
	}

	temp_file(const temp_file &) = delete;
	temp_file &operator=(const temp_file &) = delete;

	const std::string &path() const
	{
		return path_;
	}

private:
	std::string path_ = testing::TempDir() + "trace_XXXXXX";
};

// A whole trace, read in the two passes; without the events that mean no object.
struct loaded {
	explicit loaded(const std::string &path) : dir(path)
	{
		reader r(path, dir, stacks);

		for (event e = {}; r.next(e);) {
			if (e.cache != none && (e.ptr != 0 || !is_free(e.kind)))
				events.push_back(e);
		}
	}

	explicit loaded(const temp_file &file) : loaded(file.path()) {}

	const cache &cache_of(const event &e) const
	{
		return dir.caches().at(e.cache);
	}

	const frame &frame_of(const event &e, std::size_t number) const
	{
		return stacks.frames()[stacks[e.stack][number]];
	}

	// The functions of the stack of an event, joined by spaces.
	std::string stack(std::size_t number) const
	{
		std::string all;

		for (const std::uint32_t id : stacks[events.at(number).stack])
			all += (all.empty() ? "" : " ") + stacks.frames()[id].function;
		return all;
	}

	cache_index dir;
	stack_table stacks;
	std::vector<event> events;
};

// The frame as a trace writes it.
inline std::string written(const frame &f)
{
	std::ostringstream out;
	out << f.function << std::hex;
	if (f.size != 0)
		out << "+0x" << f.offset << "/0x" << f.size;
	return out.str();
}

// What is wrong with a file of that content; empty if nothing is.
inline std::string complaint(std::string_view content)
{
	const temp_file file(content);

	try {
		const loaded trace(file);
	} catch (const trace_error &error) {
		const std::string what = error.what();
		EXPECT_TRUE(what.starts_with(file.path() + ": ")) << what;
		return what.substr(file.path().size() + 2);
	}
	return {};
}

// An event line of that CPU, as the kernel aligns it.
inline std::string line(int cpu, std::string_view body)
{
	return "            task-7       [00" + std::to_string(cpu) +
	       "] .....     2.000001: " + std::string(body) + "\n";
}

// The stack of an event of that CPU.
inline std::string stack(int cpu, const std::vector<std::string> &functions)
{
	std::string text = line(cpu, "<stack trace>");
	for (const std::string &f : functions)
		text += " => " + f + "\n";
	return text;
}

inline std::string alloc(std::string_view site, std::string_view ptr, int bytes = 192)
{
	return "kmem_cache_alloc: call_site=" + std::string(site) + " ptr=" + std::string(ptr) +
	       " bytes_req=8 bytes_alloc=" + std::to_string(bytes) +
	       " gfp_flags=GFP_KERNEL|__GFP_ZERO node=-1 accounted=false";
}

inline std::string kmalloc(std::string_view ptr, int bytes)
{
	return "kmalloc: call_site=make+0x1/0x2 ptr=" + std::string(ptr) +
	       " bytes_req=8 bytes_alloc=" + std::to_string(bytes) +
	       " gfp_flags=GFP_KERNEL node=-1 accounted=false";
}

inline std::string free_to(std::string_view name, std::string_view ptr)
{
	return "kmem_cache_free: call_site=drop+0x4/0x8 ptr=" + std::string(ptr) +
	       " name=" + std::string(name);
}

inline std::string kfree(std::string_view ptr)
{
	return "kfree: call_site=drop+0x4/0x8 ptr=" + std::string(ptr);
}

inline constexpr std::string_view p1 = "00000000d4568321";
inline constexpr std::string_view p2 = "00000000d4568322";
inline constexpr std::string_view p3 = "00000000d4568323";
inline constexpr std::string_view null_ptr = "0000000000000000";

} // namespace tarn::trace
