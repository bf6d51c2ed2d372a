// SPDX-License-Identifier: GPL-2.0-only
// The switch that logs every tracked CMA allocation and release.
#include <hosted/engine/callstack.h>

#include "cma_fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using cma_backtrace = cma_test;

TEST_F(cma_backtrace, logs_allocation_and_release_with_their_stacks)
{
	std::vector<unsigned long> callers(12);
	for (int i = 0; i < 12; i++)
		callers[i] = symbol_address(fmt::format("caller_{}", i), 4, 8);
	const frame_scope in(callers);
	page *quiet = cma_alloc(area, 8);
	set_parameter("cma_show_backtrace", "1");
	cma_release(area, quiet, 8);
	const auto said = [&] {
		lines all = log_lines(log_info);
		forget_log();
		return all;
	};
	const lines released = said();
	cma_alloc(area, 8);
	const lines allocated = said();
	tell_alloc(area, base + 100, 4);
	tell_release(area, base + 102, 2);
	EXPECT_THAT(log_lines(log_info, "overlaps"), IsEmpty()) << "a shared end is no overlap";
	tell_release(area, base + 2, 2);

	lines stack{"[get_track_stack_handle]         cma_alloc+0x1e8/0x2d0"};
	for (int i = 0; i < 10; i++)
		stack.push_back(
			fmt::format("[get_track_stack_handle]         caller_{}+0x4/0x8", i));
	lines expected = stack;
	expected.push_back("[add_cma_stackinfo] linux,cma [4096-4103] add");
	EXPECT_EQ(allocated, expected);

	stack[0] = "[get_track_stack_handle]         cma_release+0x94/0x140";
	expected = stack;
	expected.push_back("[__check_and_del] linux,cma [4096-4103] del");
	EXPECT_THAT(lines(released.end() - 12, released.end()), expected);
	const lines overlapped = said();
	EXPECT_THAT(lines(overlapped.end() - 2, overlapped.end()),
		    ElementsAre("[__check_and_del] linux,cma [4098-4099] del",
				"[__check_and_del] [4098-4099] overlaps existed [4096, 4103]"));

	set_parameter("cma_show_backtrace", "0");
	said();
	cma_release(area, cma_alloc(area, 8), 8);
	tell_release(area, base, 1);
	EXPECT_THAT(said(), IsEmpty());
}

} // namespace
