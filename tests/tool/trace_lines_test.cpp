// SPDX-License-Identifier: GPL-2.0-only
#include "trace_testing.h"

#include <cstdint>
#include <filesystem>
#include <lzma.h>
#include <sys/stat.h>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

const std::string body = kfree(p1) + "\n";
const std::string good = line(0, kmalloc(p1, 64)) + line(0, kfree(p1));

std::string xz(std::string_view text)
{
	std::string out(lzma_stream_buffer_bound(text.size()), '\0');
	std::size_t size = 0;
	EXPECT_EQ(lzma_easy_buffer_encode(6, LZMA_CHECK_CRC64, nullptr,
					  reinterpret_cast<const std::uint8_t *>(text.data()),
					  text.size(), reinterpret_cast<std::uint8_t *>(out.data()),
					  &size, out.size()),
		  LZMA_OK);
	out.resize(size);
	return out;
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
		/* Having lost the alignment. */
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
	ASSERT_EQ(t.events.size(), 2U);
	EXPECT_EQ(t.events[0].task(), "task");
}

TEST(trace_lines, that_are_cut_or_malformed_are_named)
{
	const std::string full = kmalloc(p1, 704);
	const std::size_t whole = full.find("GFP_KERNEL") + 1;
	for (std::size_t length = full.find(':') + 1; length < whole; length++) {
		std::string text = good;
		text += line(0, full.substr(0, length));
		EXPECT_EQ(complaint(text), "line 3: the event is cut or malformed") << text;
	}

	for (const std::string &bad :
	     {"kmem_cache_free: call_site=a+0x1/0x2 ptr=00000000d4568321"s, "kfree: ptr="s,
	      "kfree: call_site=a+0x1/0x2 ptr=00000000d45"s,
	      "kfree: call_site=a+0x1/0x2 ptr=(____ptrval____)"s, "kfree: ptr=00000000d4568321"s,
	      "kmalloc: call_site=a ptr=00000000d4568321 bytes_req=1 bytes_alloc=4194305 "
	      "gfp_flags=0"s})
		EXPECT_EQ(complaint(line(0, bad)), "line 1: the event is cut or malformed") << bad;
	EXPECT_EQ(complaint(good + "sk-7 [00 2.000001: " + body),
		  "line 3: the event is cut or malformed");
	EXPECT_EQ(complaint(good + line(0, kfree(p1)).substr(0, 60)),
		  "line 3: the line is cut off");
}

TEST(trace_file, must_be_a_trace_of_bounded_lines)
{
	const std::string not_a_trace = "is not a kernel trace with slab events";
	EXPECT_EQ(complaint(""), not_a_trace);
	EXPECT_EQ(complaint("\xfd"
			    "7zX"),
		  not_a_trace);
	EXPECT_EQ(complaint(line(0, "sched_switch: x") + "# cut"), not_a_trace);
	EXPECT_EQ(complaint(good + std::string(line_reader::line_limit * 2, 'x') + "\n"),
		  "line 3: is longer than any line of a kernel trace");
	EXPECT_EQ(complaint(good + std::string(line_reader::line_limit - 100, 'x') + "\n"), "");
}

TEST(trace_file, must_be_readable_and_regular)
{
	EXPECT_THROW(line_reader("/nonexistent/trace"), trace_error);
	EXPECT_THROW(line_reader{testing::TempDir()}, trace_error);
	EXPECT_THROW(line_reader("/dev/null"), trace_error);
	const std::string pipe = testing::TempDir() + "trace_pipe_" + std::to_string(getpid());
	ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
	EXPECT_THROW(line_reader{pipe}, trace_error);
	unlink(pipe.c_str());
}

TEST(trace_xz, streams_may_follow_one_another_but_not_break)
{
	std::string more;
	for (int i = 0; i < 3000; i++)
		more += good;
	const std::string packed = xz(good) + xz(more);
	const temp_file file(packed);
	const loaded t(file);
	EXPECT_EQ(t.events.size(), 6002U);
	line_reader lines(file.path());
	std::string_view l;
	while (lines.next(l))
		;
	EXPECT_EQ(lines.input().position(), packed.size());
	EXPECT_EQ(lines.input().size(), packed.size());

	const std::size_t first = xz(good).size();
	for (std::size_t size = 6; size < packed.size(); size += 3)
		EXPECT_EQ(complaint(packed.substr(0, size)),
			  size == first ? "" : "the xz data is cut off");
	std::string broken = packed;
	broken[packed.size() / 2] = static_cast<char>(broken[packed.size() / 2] ^ 0x55);
	EXPECT_EQ(complaint(broken), "the xz data is broken");
	EXPECT_EQ(complaint(packed + "and some other text"), "the xz data is broken");
}

} // namespace

} // namespace tarn::trace
