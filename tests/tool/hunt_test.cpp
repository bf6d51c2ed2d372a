// SPDX-License-Identifier: GPL-2.0-only
// The hunt from end to end, and the command line as a person meets it.
#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <tuple>

#include <gtest/gtest.h>
#include <hosted/loader.h>
#include <tarnctl/hunt_hosted.h>
#include <tarnctl/readout.h>

#include "trace_testing.h"

namespace tarn
{

namespace
{

using trace::temp_file;

const std::string sample = EXAMPLES_DIR "/fd-leak.ftrace.xz";

// (count, pid range) by (task, stack)
using callers = std::map<std::pair<std::string, std::string>,
			 std::tuple<std::int64_t, std::int64_t, std::int64_t>>;

// What the reader delivers for a cache, counted in a map: nothing of the module takes part.
callers expected_callers(const trace::loaded &loaded, const std::string &cache, bool frees)
{
	callers all;

	for (const trace::event &e : loaded.events) {
		if (loaded.cache_of(e).name != cache || trace::is_free(e.kind) != frees)
			continue;
		const std::string comm = e.in_interrupt ? "" : std::string(e.task());
		const std::int64_t pid = e.in_interrupt ? 0 : e.pid;
		std::string stack;

		for (const std::uint32_t id : e.stack())
			stack += trace::written(loaded.frames[id]) + "\n";
		auto &[count, low, high] =
			all.try_emplace({comm, stack}, 0, pid, pid).first->second;

		count++;
		low = std::min(low, pid);
		high = std::max(high, pid);
	}
	std::erase_if(all, [](const auto &entry) { return std::get<0>(entry.second) < 50; });
	return all;
}

callers found_callers(const std::vector<caller_record> &records)
{
	callers all;

	for (const caller_record &r : records) {
		std::string stack;

		for (const std::string &frame : r.frames)
			stack += frame + "\n";
		all[{r.comm, stack}] = {r.count, r.pid_min, r.pid_max};
	}
	return all;
}

struct outcome {
	int status;
	std::string out;
	std::string err;
};

outcome tarnctl(const std::string &arguments)
{
	const temp_file errors("");
	const std::string program =
		(hosted::default_module_path().parent_path() / "tarnctl").string();
	std::FILE *pipe = popen((program + " " + arguments + " 2>" + errors.path()).c_str(), "r");
	outcome result{};
	std::array<char, 4096> buffer;

	while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe))
		result.out.append(buffer.data(), n);
	result.status = WEXITSTATUS(pclose(pipe));
	std::ifstream file(errors.path());
	result.err.assign(std::istreambuf_iterator<char>(file), {});
	return result;
}

} // namespace

TEST(hunt, counts_equal_the_trace_for_every_cache)
{
	const trace::loaded loaded(sample);

	for (const trace::cache &cache : loaded.dir.caches()) {
		SCOPED_TRACE(cache.name);
		const hunt_result result = hunt_trace(sample, cache.name);

		EXPECT_EQ(result.cache, cache.name);
		EXPECT_EQ(result.object_size, cache.object_size);
		ASSERT_TRUE(result.events);
		EXPECT_EQ(result.events->dropped, 0U);
		EXPECT_EQ(found_callers(result.callers.alloc),
			  expected_callers(loaded, cache.name, false));
		EXPECT_EQ(found_callers(result.callers.free),
			  expected_callers(loaded, cache.name, true));
		EXPECT_EQ(static_cast<std::int64_t>(result.target.end_kib),
			  static_cast<std::int64_t>(result.target.start_kib) +
				  result.target.delta_kib);
	}
}

TEST(hunt, takes_the_largest_unreclaimable_cache_when_none_is_named)
{
	std::string text;

	for (int i = 1; i <= 60; i++) {
		const std::string ptr = "00000000d4" + std::to_string(100000 + i);

		text += trace::line(0, trace::alloc("d_alloc+0x1/0x2", ptr, 4096));
		text += trace::line(0, trace::kmalloc("1" + ptr.substr(1), 256));
	}
	text += trace::line(0, trace::free_to("dentry", "00000000d4100001"));
	const hunt_result result = hunt_trace(temp_file(text).path(), "");

	EXPECT_EQ(result.cache, "kmalloc-256");
	ASSERT_TRUE(result.events);
	EXPECT_EQ(result.events->alloc, 60U);
	ASSERT_EQ(result.callers.alloc.size(), 1U);
	EXPECT_EQ(result.callers.alloc[0].frames, std::vector<std::string>{"make+0x1/0x2"});
}

TEST(readout, survives_task_names_that_look_like_its_own_text)
{
	const readout r = parse_readout("@@@@@a b SLUB_FREE@@@@@\n"
					"[0x1f c:(50/110) (p:-1-7) ]\n]\n  f+0x1/0x2 [m]\n"
					"[0xffffffc008000010 c:(60/110) (p:0-0) ]\n");

	EXPECT_EQ(r.cache, "a b");
	EXPECT_TRUE(r.alloc.empty());
	EXPECT_EQ(r.free,
		  (std::vector<caller_record>{{"0x1f", "]\n", 50, 110, -1, 7, {"f+0x1/0x2 [m]"}},
					      {"0xffffffc008000010", "", 60, 110, 0, 0, {}}}));
	for (const char *bad : {"@", "@@@@@a SLUB_X@@@@@\n", "@@@@@a SLUB_FREE@@@@@\n[0x1 c:(5",
				"@@@@@a SLUB_FREE@@@@@\n[0x1 c:(5/5) (p:1-1) x]\n  cut"})
		EXPECT_THROW(parse_readout(bad), readout_error) << bad;
}

TEST(command_line, answers_bad_usage_and_bad_input_with_one_sentence)
{
	const temp_file empty("");
	const temp_file cut(trace::line(0, "kmem_cache_alloc: call_site=a+0x1/0x2 ptr=0000"));

	for (const auto &[arguments, status] :
	     std::map<std::string, int>{{"", 2},
					{"hunt", 2},
					{"hunt --trace", 2},
					{"hunt --trace " + sample + " --what", 2},
					{"hunt --trace /nowhere", 2},
					{"hunt --trace /", 2},
					{"hunt --trace ''", 2},
					{"hunt --trace " + empty.path(), 2},
					{"hunt --trace " + cut.path(), 2},
					{"hunt --trace " + sample + " --cache none", 1},
					{"hunt --trace " + sample + " --device /dev/null", 2},
					{"hunt --trace " + sample + " --seconds 1", 2},
					{"hunt --device /dev/null", 2},
					{"hunt --device /nowhere --seconds 86400", 2},
					{"hunt --device /nowhere --seconds 86401", 2},
					{"watch --count 0", 2},
					{"watch --seconds 1x", 2},
					{"thresholds --device /dev/null", 2},
					{"thresholds set", 2},
					{"thresholds set slab_k=x", 2},
					{"pages --device ''", 2},
					{"pages --device /dev/zero --json", 2}}) {
		const outcome result = tarnctl(arguments);

		EXPECT_EQ(result.status, status) << arguments;
		EXPECT_EQ(result.out, "") << arguments;
		EXPECT_TRUE(result.err.starts_with("tarnctl: ")) << result.err;
		EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
	}
}

TEST(command_line, prints_a_hunt_for_people_and_for_programs)
{
	const std::string hunt = "hunt --trace " + sample + " --cache filp";
	const outcome text = tarnctl(hunt + " --log");
	const outcome json = tarnctl(hunt + " --json");

	EXPECT_EQ(text.status, 0) << text.err;
	EXPECT_NE(text.out.find("__arm64_sys_openat"), std::string::npos);
	EXPECT_NE(text.out.find("222 leaker (pids 46 to 48), 111 mediad (pid 47)"),
		  std::string::npos);
	EXPECT_NE(text.out.find("slub name[filp] ok"), std::string::npos);
	EXPECT_EQ(json.status, 0) << json.err;
	EXPECT_TRUE(json.out.starts_with("{\n  \"cache\": \"filp\",\n  \"object_size\": 192,"));
}

} // namespace tarn
