// SPDX-License-Identifier: GPL-2.0-only
// The hunt from end to end, and the command line as a person meets it.
#include <map>
#include <tuple>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tarnctl/hunt/hunt_hosted.h>
#include <tarnctl/hunt/readout.h>
#include <tarnctl/hunt/replay.h>

#include "tarnctl_program.h"
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

		for (const std::uint32_t id : loaded.stacks[e.stack].subspan(
			     0, std::min(replay::frame_limit, loaded.stacks[e.stack].size())))
			stack += trace::written(loaded.stacks.frames()[id]) + "\n";
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

} // namespace

TEST(hunt, counts_equal_the_trace_for_every_cache)
{
	const trace::loaded loaded(sample);

	for (const trace::cache &cache : loaded.dir.caches()) {
		SCOPED_TRACE(cache.name);
		const hunt_result result = hunt_trace(sample, loaded.dir, cache.name);

		EXPECT_EQ(result.cache, cache.name);
		EXPECT_EQ(result.object_size, cache.object_size);
		ASSERT_TRUE(result.events);
		EXPECT_EQ(result.events->dropped(), 0U);
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
	const temp_file file(text);
	const hunt_result result = hunt_trace(file.path(), trace::cache_index(file.path()), "");

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
					{"hunt --trace " + sample + " --live-at noon", 2},
					{"hunt --trace " + sample + " --top 0", 2},
					{"hunt --device /dev/null --stacks", 2},
					{"caches", 2},
					{"caches /nowhere", 2},
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
	const std::string hunt = "hunt --trace " + sample;
	const outcome text = tarnctl(hunt + " --readout --log");
	const outcome json = tarnctl(hunt + " --json");

	EXPECT_EQ(text.status, 0) << text.err;
	EXPECT_NE(text.out.find("SUSPECT  leaker"), std::string::npos);
	EXPECT_NE(text.out.find("__arm64_sys_pipe2"), std::string::npos);
	EXPECT_NE(text.out.find("222 leaker (lowest pid 46, highest 48), 111 mediad (pid 47)"),
		  std::string::npos);
	EXPECT_NE(text.out.find("slub name[filp] ok"), std::string::npos);
	EXPECT_EQ(json.status, 0) << json.err;
	EXPECT_TRUE(json.out.starts_with("{\n  \"schema\": \"tarnctl.hunt/2\",\n  \"cache\": "
					 "\"filp\",\n  \"object_size\": 192,"));
}

// The figures of the commands are those of independent_count.py; here it is how they combine.
TEST(command_line, narrows_what_it_shows)
{
	const std::string hunt = "hunt --json --trace " + sample;
	const auto run = [](const std::string &arguments) {
		const outcome result = tarnctl(arguments);

		EXPECT_EQ(result.status, 0) << result.err;
		return nlohmann::json::parse(result.out);
	};
	const auto objects = [](const nlohmann::json &held) {
		std::uint64_t sum = 0;

		for (const auto &stack : held)
			sum += stack["objects"].get<std::uint64_t>();
		return sum;
	};
	const auto filp = run(hunt + " --cache filp --live-at peak");
	const auto pipes = run(hunt + " --cache filp --live-at peak --pid 46 --pid 48 "
				      "--function '*_sys_pipe2' --frames 3 --top 2 --sort objects");
	const auto old = run(hunt + " --cache filp --live-at 0.15 --min-age 50ms --comm lea*");
	const auto windows = run(hunt + " --live-at 0.15 --from 0.05 --to 100ms");

	EXPECT_EQ(objects(filp["held"]), 889U);
	EXPECT_EQ(filp["live"]["peak_bytes"], 889 * 192);
	ASSERT_EQ(pipes["held"].size(), 2U);
	for (const auto &stack : pipes["held"]) {
		EXPECT_EQ(stack["frames"].size(), 3U);
		for (const auto &task : stack["tasks"])
			EXPECT_EQ(task["comm"], "leaker");
	}
	EXPECT_GT(objects(old["held"]), 0U);
	EXPECT_LT(objects(old["held"]), objects(pipes["held"]));
	EXPECT_EQ(windows["live"]["samples"].size(), 256U);
	EXPECT_GT(objects(windows["held"]), objects(old["held"]));
}

TEST(command_line, says_what_is_lost_and_fails_when_that_is_asked_of_it)
{
	const temp_file lossy("CPU:0 [LOST 5 EVENTS]\n" +
			      trace::line(0, trace::kmalloc(trace::p1, 64)) +
			      trace::line(0, trace::kfree(trace::p1)));
	const std::string caches = "caches " + lossy.path();
	const outcome lenient = tarnctl(caches);
	const outcome strict = tarnctl(caches + " --strict");
	const outcome sound = tarnctl("hunt --strict --trace " + sample);
	const outcome piped = tarnctl("caches - --json < " + lossy.path());
	const outcome through_pipe = tarnctl("caches - --top 1 --sort end", "",
					     "cat " + sample + " | " + tarnctl_path());
	const outcome near = tarnctl("hunt --cache flip --trace " + sample);

	EXPECT_EQ(lenient.status, 0);
	EXPECT_TRUE(lenient.out.starts_with("LOST 5 events")) << lenient.out;
	EXPECT_NE(lenient.out.find("NO STACKS"), std::string::npos);
	EXPECT_EQ(strict.status, 3);
	EXPECT_EQ(strict.out, lenient.out);
	EXPECT_EQ(sound.status, 0);
	EXPECT_EQ(nlohmann::json::parse(piped.out)["trust"]["lost"], 5);
	EXPECT_EQ(through_pipe.status, 0) << through_pipe.err;
	EXPECT_NE(through_pipe.out.find("size-128"), std::string::npos) << through_pipe.out;
	EXPECT_EQ(near.status, 1);
	EXPECT_NE(near.err.find("is it filp"), std::string::npos) << near.err;
}

} // namespace tarn
