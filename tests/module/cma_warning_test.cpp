// SPDX-License-Identifier: GPL-2.0-only
// The warning when the target area fills up.
#include "cma_fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class cma_warning : public cma_test
{
protected:
	// The warnings that an allocation causes.
	lines warnings(cma &of, unsigned long count)
	{
		forget_log();
		EXPECT_TRUE(cma_alloc(of, count));
		lines found = log_lines(log_info, "cma warn");
		EXPECT_EQ(log_lines(log_info, "[show_brief]").size(), found.size());
		return found;
	}
	// One page more than 850 of 1024 of the area.
	static constexpr unsigned long above_limit = 1701;
};

TEST_F(cma_warning, fires_once_above_the_limit)
{
	const lines warns{
		"[cma_show_when_exceed] cma warn linux,cma has been used exceed 850/1024"};
	EXPECT_THAT(warnings(camera, 512), IsEmpty()) << "not the target";
	EXPECT_THAT(warnings(area, above_limit - 2), IsEmpty());
	EXPECT_THAT(warnings(area, 1), IsEmpty()) << "at the limit";
	EXPECT_EQ(warnings(area, 1), warns);
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	set_parameter("cma_warn_limit_permillage", "100");
	EXPECT_THAT(warnings(area, 1), IsEmpty()) << "another limit does not re-arm it";
}

TEST_F(cma_warning, counts_an_area_of_chunks_in_chunks)
{
	set_parameter("cma_target", "chunks");
	EXPECT_THAT(warnings(chunks, 4 * 1699), IsEmpty());
	EXPECT_THAT(warnings(chunks, 1), IsEmpty()) << "a chunk of one page: at the limit";
	EXPECT_THAT(warnings(chunks, 1), SizeIs(1)) << "1701 of 2048 chunks";
}

TEST_F(cma_warning, is_rearmed_by_another_target_at_its_first_allocation)
{
	EXPECT_THAT(warnings(area, above_limit), SizeIs(1));
	set_parameter("cma_target", "camera");
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	EXPECT_THAT(warnings(camera, 1), SizeIs(1)) << "the limit of a small area is 0";
	EXPECT_THAT(warnings(camera, 1), IsEmpty());
	set_parameter("cma_target", "linux,cma");
	EXPECT_THAT(warnings(area, 1), SizeIs(1));
}

TEST_F(cma_warning, needs_a_target_that_exists_and_a_limit_that_can_be_reached)
{
	set_parameter("cma_target", "linux");
	EXPECT_THAT(warnings(area, above_limit), IsEmpty());
	set_parameter("cma_target", "linux,cma");
	set_parameter("cma_warn_limit_permillage", "-1");
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	set_parameter("cma_warn_limit_permillage", "849");
	EXPECT_THAT(warnings(area, 1), SizeIs(1));
}

} // namespace
