// SPDX-License-Identifier: GPL-2.0-only
#include "trace_testing.h"

#include <cstdint>
#include <cstdio>
#include <sys/stat.h>
#include <thread>

#include <tarnctl/trace/spool.h>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

const std::string body = kfree(p1) + "\n";
const std::string good = line(0, kmalloc(p1, 64)) + line(0, kfree(p1));

// Packed by the compressor of that name.
std::string packed(const std::string &program, std::string_view text)
{
	const temp_file plain(text);
	std::FILE *pipe = popen((program + " -c " + plain.path()).c_str(), "r");
	std::string out;
	char buffer[4096];

	while (const std::size_t n = std::fread(buffer, 1, sizeof(buffer), pipe))
		out.append(buffer, n);
	EXPECT_EQ(pclose(pipe), 0) << program;
	return out;
}

std::uint64_t damaged_lines(const std::string &text)
{
	const temp_file file(text);
	const loaded t(file);

	return t.dir.facts().damaged_lines;
}

struct header_case {
	std::string header;
	std::string comm;
	int pid = 0;
	unsigned int cpu = 0;
	bool in_interrupt = false;
};

TEST(trace_header, is_read_in_every_form_the_kernel_has)
{
	const std::vector<header_case> cases = {
		{"          <idle>-0       [003] ..s1.     2.712523: ", "<idle>", 0, 3, true},
		{"           <...>-49      [000] d.H..     2.712523: ", "<...>", 49, 0, true},
		{"           swoop-4194303 [127] .NN4.   123.000001: ", "swoop", 4194303, 127},
		{"     kworker/0:1-17      [000] d.Z.  2.712523: ", "kworker/0:1", 17, 0, true},
		{"     kworker/0:1-17      [000] d.h3.2 2.712523: ", "kworker/0:1", 17, 0, true},
		{" fifteen-letters-17      [000] ..z..     2.712523: ", "fifteen-letters", 17, 0,
		 true},
		{"  a b-1 [001] x -17      [000] .....     2.712523: ", "a b-1 [001] x ", 17},
		{" -9 [1] .... 1.2-8       [002] .....     2.712523: ", "-9 [1] .... 1.2", 8, 2},
		{"             irq-8       [002]     2.712523: ", "irq", 8, 2},
		{"             irq-8       (-------) [002] .....     2.712523: ", "irq", 8, 2},
		{"             irq-8       (      7) [002] ..s..     2.712523: ", "irq", 8, 2,
		 true},
		{"             irq-8       (    7) [002] 2.712523: ", "irq", 8, 2},
		{"            tick-8       [002] .....        12345678: ", "tick", 8, 2},
		{"                -8       [002] .....     2.712523: ", "", 8, 2},
		{" => abcdefghijkl-17      [000] .....     2.712523: ", "=> abcdefghijkl", 17},
		// Having lost the alignment.
		{"web-server-8 [002] .....     2.712523: ", "web-server", 8, 2},
		{"a-very-long-name-of-a-task-8 [002] ..... 2.712523: ", "a-very-long-nam", 8, 2},
	};
	for (const header_case &c : cases) {
		parsed_line parsed = {};
		const std::string text = c.header + kfree(p1);
		ASSERT_EQ(parse_line(text, parsed), line_kind::slab_event) << text;
		EXPECT_EQ(parsed.comm, c.comm) << text;
		EXPECT_EQ(parsed.pid, c.pid) << text;
		EXPECT_EQ(parsed.cpu, c.cpu) << text;
		EXPECT_EQ(parsed.in_interrupt, c.in_interrupt) << text;
	}
}

TEST(trace_lines, that_are_no_slab_events_are_passed_over)
{
	const std::string junk = "# tracer: nop\n\n\0\xff\x01 =>\n - - -1 [\nname-1 [000]\n"
				 "CPU:1 [LOST 5 EVENTS]\n => stray\n"s +
				 line(0, "kmem_cache_alloc <-dup") + line(0, "kmallocs: x") +
				 line(0, "tracing_mark_write: kfree: call_site=x ptr=y") +
				 line(9, "<stack trace>") + " => [FTRACE TRAMPOLINE]\n =>\n => \n";
	const loaded t(temp_file(junk + good + junk));

	EXPECT_EQ(t.dir.facts().lost, 10U);
	ASSERT_EQ(t.events.size(), 2U);
	EXPECT_EQ(t.events[0].task(), "task");
}

TEST(trace_lines, that_are_cut_or_malformed_are_passed_over_and_counted)
{
	const std::string full = kmalloc(p1, 704);
	const std::size_t whole = full.find("GFP_KERNEL") + 1;

	for (std::size_t length = full.find(':') + 1; length < whole; length++) {
		const loaded t(temp_file(good + line(0, full.substr(0, length)) +
					 stack(0, {"make", "wrong"}) + line(0, kmalloc(p1, 64))));

		EXPECT_EQ(t.dir.facts().damaged_lines, 1U) << length;
		EXPECT_EQ(t.dir.facts().first_damaged, 3U);
		ASSERT_EQ(t.events.size(), 3U);
		EXPECT_FALSE(t.events[1].has_stack) << "the stack is the damaged event's";
	}
	for (const std::string &bad :
	     {"kfree: ptr="s, "kfree: call_site=a+0x1/0x2 ptr=00000000d45"s,
	      "kfree: call_site=a+0x1/0x2 ptr=(____ptrval____)"s, "kfree: ptr=00000000d4568321"s,
	      "kmalloc: call_site=a ptr=00000000d4568321 bytes_req=1 bytes_alloc=4194305 "
	      "gfp_flags=0"s})
		EXPECT_EQ(damaged_lines(good + line(0, bad)), 1U) << bad;
	EXPECT_EQ(damaged_lines(good + "sk-7 [00 2.000001: " + body), 1U);
	EXPECT_EQ(damaged_lines(good + line(0, kfree(p1)).substr(0, 60)), 1U);
	EXPECT_EQ(damaged_lines(good + std::string(line_reader::line_limit * 2, 'x') + "\n" + good),
		  1U);
	EXPECT_EQ(damaged_lines(good + std::string(line_reader::line_limit - 100, 'x') + "\n"), 0U);
}

TEST(trace_lines, tell_of_entries_that_were_overwritten)
{
	const loaded t(temp_file("# entries-in-buffer/entries-written: 5/9   #P:2\n" + good));

	EXPECT_EQ(t.dir.facts().overwritten, 4U);
	EXPECT_FALSE(t.dir.facts().sound());
}

TEST(trace_file, that_is_no_trace_is_named_by_what_it_seems_to_be)
{
	const std::string tar = std::string(257, 'x') + "ustar" + std::string(300, '\0');

	for (const auto &[content, word] : std::vector<std::pair<std::string, std::string>>{
		     {"", "empty"},
		     {"\x7f"
		      "ELF\x02\x01",
		      "ELF"},
		     {"\x17\x08\x44tracing6", "trace-cmd report"},
		     {"PERFILE2....", "perf"},
		     {packed("gzip", tar), "tar archive"},
		     {"PK\x03\x04zip", "zip archive"},
		     {"leak 46 [001] 2.7: kmem:kmem_cache_alloc: x\n", "perf"},
		     {line(0, "kfree: call_site=a+0x1/0x2 ptr=(____ptrval____)"), "hides"},
		     {line(0, "sched_switch: x") + "# cut", "kmem_cache_alloc"}})
		EXPECT_NE(complaint(content).find(word), std::string::npos)
			<< word << ": " << complaint(content);
}

TEST(trace_file, must_be_readable_and_regular)
{
	EXPECT_THROW(line_reader(std::string("/nonexistent/trace")), trace_error);
	EXPECT_THROW(line_reader{testing::TempDir()}, trace_error);
	EXPECT_THROW(line_reader(std::string("/dev/null")), trace_error);
}

TEST(trace_file, may_be_packed_by_any_of_the_usual_compressors)
{
	std::string text;

	for (int i = 0; i < 20000; i++)
		text += good;
	for (const std::string program : {"xz", "gzip", "bzip2", "zstd", "lz4"}) {
		SCOPED_TRACE(program);
		const std::string whole = packed(program, text);
		const temp_file file(packed(program, good) + whole);
		const loaded t(file);

		EXPECT_EQ(t.events.size(), 40002U);
		EXPECT_TRUE(t.dir.facts().sound());

		const temp_file cut(std::string_view(whole).substr(0, whole.size() * 3 / 4));
		const loaded rest(cut);

		EXPECT_GT(rest.events.size(), 10000U);
		EXPECT_GE(rest.dir.facts().damaged_lines, 1U);
		EXPECT_FALSE(rest.dir.facts().broken.empty());
	}
}

TEST(trace_file, may_come_through_a_pipe)
{
	const std::string pipe = testing::TempDir() + "trace_pipe_" + std::to_string(getpid());

	ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
	std::thread writer([&pipe] { std::ofstream(pipe) << good; });
	const spooled_trace spooled(pipe);
	const cache_index index(spooled.path());

	writer.join();
	unlink(pipe.c_str());
	EXPECT_EQ(index.facts().events, 2U);
	EXPECT_EQ(cache_index(spooled.path()).facts().events, 2U) << "read twice";
}

} // namespace

} // namespace tarn::trace
