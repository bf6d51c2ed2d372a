// SPDX-License-Identifier: GPL-2.0-only
// The switches that abort madvise passes and compaction.
#include <hosted/engine/context.h>
#include <hosted/vendor_hooks.h>

#include "fixture.h"

using namespace module_tests;

namespace
{

class abort_mm_opt : public module_test
{
protected:
	// Whether the probes abort each kind of pass, given what was decided before them.
	std::pair<bool, bool> aborted(bool before = false)
	{
		std::pair<bool, bool> abort{before, before};

		forget_log();
		trace_android_vh_madvise_cold_or_pageout_abort(nullptr, &abort.first);
		trace_android_vh_compact_finished(&abort.second);
		return abort;
	}
};

TEST_F(abort_mm_opt, each_switch_aborts_its_own_passes)
{
	using wishes = std::pair<bool, bool>;
	EXPECT_EQ(log_lines(log_info, "abort_mm_opt"), lines{"[abort_mm_opt_init] init succeed!"});
	EXPECT_EQ(aborted(), wishes(false, false));
	EXPECT_EQ(aborted(true), wishes(true, true)) << "another probe is not overruled";
	EXPECT_TRUE(log_lines(log_any).empty());

	set_parameter("abort_madvise", "5");
	{
		const hosted::context_scope on(hosted::context_kind::softirq);
		EXPECT_EQ(aborted(), wishes(true, false));
	}
	EXPECT_EQ(log_lines(log_any),
		  lines{"[should_abort_madvise] set abort_madvise_opt success!"});
	set_parameter("abort_madvise", "0");
	set_parameter("abort_compact", "4294967295");
	EXPECT_EQ(aborted(), wishes(false, true));
	EXPECT_EQ(aborted(true), wishes(true, true));
	EXPECT_EQ(log_lines(log_any),
		  lines{"[should_abort_compact] set abort_compact_opt success!"});
	EXPECT_EQ(set_parameter("abort_compact", "-1"), -EINVAL);
}

} // namespace
