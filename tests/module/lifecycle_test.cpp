// SPDX-License-Identifier: GPL-2.0-only
// Starts that fail half-way, and starts and stops in any order. The loader stops the program when a
// module leaves something behind.
#include <optional>

#include <hosted/clock.h>
#include <hosted/cma.h>
#include <hosted/core_tracepoints.h>
#include <hosted/leftovers.h>
#include <hosted/tasks.h>
#include <hosted/vendor_hooks.h>

#include "fixture.h"

namespace
{

using namespace module_tests;
using hosted::fault_scope;

constexpr fault_scope::mode modes[] = {fault_scope::mode::once, fault_scope::mode::from_then_on};

using lifecycle = machine_test;

TEST_F(lifecycle, the_module_starts_with_what_it_can_get)
{
	// What a failure of the n-th call says.
	constexpr const char *hook_failed = "register hook failed!";
	constexpr const char *messages[] = {
		"[tarn_mem_adapter_init] tarn_updata_page_mapcount register fail, ret -12.",
		"[tarn_mem_adapter_init] vh_customize_alloc_gfp register fail, ret -12.",
		("[register_abort_mm_opt_vendor_hooks] "
		 "register_trace_android_vh_madvise_cold_or_pageout_abort failed! ret=-12"),
		("[register_abort_mm_opt_vendor_hooks] "
		 "register_trace_android_vh_compact_finished failed! ret=-12"),
		"failed to create mm_event kobject", "failed to register mm_event group",
		hook_failed, hook_failed, hook_failed,
		// CMA: the depot, two tracepoints, each found and attached to, then a directory,
		// and for each area a directory and a file.
		"[cma_track_init] stack_depot_init failed!\n", "", "", "", "", "", "", "", "", "",
		"folio_add_pin_kp register_kprobe failed, returned -12",
		"try_grab_page_kp register_kprobe failed, returned -12",
		"try_grab_folio_kp register_kprobe failed, returned -12"};
	constexpr unsigned calls = std::size(messages);
	cma &a = hosted::add_cma_area("a", 0, 512);
	hosted::add_cma_area("b", 512, 512);
	for (unsigned i = 0; i < 2 * (calls + 1); i++) {
		const unsigned n = i / 2 + 1;
		SCOPED_TRACE(n);
		forget_log();
		std::optional<fault_scope> fail(std::in_place, n, modes[i % 2]);
		const hosted::loaded_module loaded;
		ASSERT_EQ(fail->hit(), n <= calls);
		fail.reset();

		const auto fails = [&](unsigned first, unsigned last) {
			return n <= last && (n >= first || i % 2);
		};
		const auto first_message = [&] {
			for (unsigned m = n; m <= calls && fails(m, m); m++)
				if (*messages[m - 1])
					return messages[m - 1];
			return "";
		};
		const lines said = errors();
		EXPECT_EQ(said.empty() ? "" : said[0], first_message());
		EXPECT_EQ(loaded.status(), 0);
		for (const auto &[hook, attached] :
		     {std::pair{&__tracepoint_android_vh_update_page_mapcount, !fails(1, 1)},
		      {&__tracepoint_android_vh_customize_alloc_gfp, !fails(2, 2)},
		      {&__tracepoint_android_vh_madvise_cold_or_pageout_abort, !fails(3, 4)},
		      {&__tracepoint_android_vh_compact_finished, !fails(3, 4)},
		      {&__tracepoint_android_vh_vmscan_kswapd_done, !fails(5, 9)},
		      {&__tracepoint_android_vh_alloc_pages_slowpath, !fails(5, 9)},
		      {&__tracepoint_android_vh_mm_direct_reclaim_enter, !fails(5, 9)},
		      {&__tracepoint_cma_alloc_finish, !fails(11, 12)},
		      {&__tracepoint_cma_release, !fails(13, 14)}})
			EXPECT_EQ(hosted::in_use(*hook), attached) << hook->name;
		const bool tree = !fails(15, 15);
		const std::string missing = std::to_string(-ENOENT);
		for (const auto &[file, there] :
		     {std::pair{"mm_event/enabled", !fails(5, 6)},
		      {"debug/tarn_cma/a/show", tree && !fails(16, 17)},
		      {"debug/tarn_cma/b/show", tree && !fails(18, 19)}})
			EXPECT_EQ(read_file("/sys/kernel/" + std::string(file)),
				  there ? "0\n" : missing)
				<< file;
		EXPECT_EQ(log_lines(log_info, "Planted").size(),
			  fails(20, 22) ? std::max(n, 20u) - 20 : 3);
		// The stop takes back what was recorded, too.
		hosted::cma_alloc(a, 1);
	}
}

TEST_F(lifecycle, tracking_starts_as_a_whole_or_not_at_all)
{
	// Those of the slab tracker; the vmalloc hooks come after them and may fail.
	constexpr unsigned needed = 8, calls = 11;
	for (unsigned i = 0; i < 2 * (calls + 1); i++) {
		const unsigned n = i / 2 + 1;
		SCOPED_TRACE(n);
		const hosted::loaded_module loaded;
		const auto init = loaded.symbol<int()>("tarn_memtrack_init");
		const auto exit = loaded.symbol<void()>("tarn_memtrack_exit");
		const lines before = hosted::leftovers();
		forget_log();
		const bool fails = n <= needed;
		{
			const fault_scope fail(n, modes[i % 2]);
			EXPECT_EQ(init(), fails ? -EINVAL : 0);
			EXPECT_EQ(fail.hit(), n <= calls);
		}
		EXPECT_EQ(errors("[tarn_memtrack_init] slub_track_init fail\n").size(), fails);
		EXPECT_EQ(parameter("memtrack_init_state"), fails ? "0\n" : "1\n");
		EXPECT_EQ(hosted::leftovers().size() == before.size(), fails);
		exit();
		EXPECT_THAT(hosted::leftovers(), testing::UnorderedElementsAreArray(before));
		EXPECT_EQ(init(), 0);
		exit();
	}
}

TEST_F(lifecycle, starts_and_stops_come_in_any_order)
{
	enum { channel, trackers, subsystems };
	const char *starts[] = {"tarn_memory_netlink_init", "tarn_memtrack_init"};
	const char *stops[] = {"tarn_memory_netlink_exit", "tarn_memtrack_exit"};
	constexpr unsigned hunt = 2 * subsystems, actions = hunt + 1;
	for (unsigned sequence = 0; sequence < actions * actions * actions; sequence++) {
		SCOPED_TRACE(sequence);
		hosted::loaded_module loaded;
		platform::client client(loaded);
		bool on[subsystems] = {}, was_on[subsystems] = {};
		for (unsigned step = 0, rest = sequence; step < 3; step++, rest /= actions) {
			const unsigned action = rest % actions, subsystem = action / 2;
			if (action == hunt) {
				client.command(MEMTYPE_SLUB, MEMCHECK_CMD_PREPARE);
				client.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON);
				EXPECT_EQ(client.read_stacks(MEMTYPE_SLUB, 64).status, 0);
			} else if (action % 2) {
				loaded.symbol<void()>(stops[subsystem])();
				on[subsystem] = false;
			} else {
				EXPECT_EQ(loaded.symbol<int()>(starts[subsystem])(), 0);
				on[subsystem] = was_on[subsystem] = true;
			}
			EXPECT_EQ(loaded.symbol<int(unsigned)>("lmkd_notify")(8),
				  on[channel] ? 0 : -1);
			EXPECT_EQ(parameter("netlink_init"), was_on[channel] ? "1\n" : "0\n");
			EXPECT_EQ(hosted::kernel_threads(), on[trackers] ? 2u : 0u);
			EXPECT_EQ(parameter("memtrack_init_state"),
				  was_on[trackers] ? "1\n" : "0\n");
		}
		for (const char *stop : stops)
			loaded.symbol<void()>(stop)();
	}
}

TEST_F(lifecycle, a_stop_takes_back_the_timer_and_the_queued_report)
{
	{
		const hosted::loaded_module loaded;
		hosted::write_file("/sys/kernel/mm_event/enabled", "1");
		hosted::advance(1);
		hosted::settle();
		hosted::hold_thread("kworker/0:1");
		hosted::advance(21600000);
	}
	hosted::let_go_thread("kworker/0:1");
	hosted::advance(21600000);
	hosted::settle();
	EXPECT_EQ(platform::take_ember_events().size(), 1u);
}

} // namespace
