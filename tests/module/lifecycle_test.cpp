// SPDX-License-Identifier: GPL-2.0-only
// Starts that fail half-way, and starts and stops in any order. The loader stops the program if a
// module leaves something behind.
#include <optional>
#include <set>
#include <tuple>

#include <hosted/cma.h>
#include <hosted/core_tracepoints.h>
#include <hosted/engine/clock.h>
#include <hosted/engine/leftovers.h>
#include <hosted/task_control.h>
#include <hosted/vendor_hooks.h>

#include "fixture.h"

namespace
{

using namespace module_tests;
using hosted::fault_scope;

using hosted::fallible_call;
using mode = fault_scope::mode;
using names = std::set<std::string>;

// The result of loading the module while a call failed: error lines, and what does not work.
struct start_result {
	std::string failed_call;
	lines said;
	names lost;

	bool operator==(const start_result &) const = default;
	friend std::ostream &operator<<(std::ostream &os, const start_result &r)
	{
		return os << testing::PrintToString(std::tie(r.failed_call, r.said, r.lost));
	}
};

class lifecycle : public machine_test
{
protected:
	static void add_unattached(names &lost)
	{
		for (const auto *hook : {&__tracepoint_android_vh_update_page_mapcount,
					 &__tracepoint_android_vh_customize_alloc_gfp,
					 &__tracepoint_android_vh_madvise_cold_or_pageout_abort,
					 &__tracepoint_android_vh_compact_finished,
					 &__tracepoint_android_vh_vmscan_kswapd_done,
					 &__tracepoint_android_vh_alloc_pages_slowpath,
					 &__tracepoint_android_vh_mm_direct_reclaim_enter,
					 &__tracepoint_cma_alloc_finish, &__tracepoint_cma_release})
			if (!hosted::in_use(*hook))
				lost.insert(hook->name);
	}
	static void add_missing_files(names &lost)
	{
		for (const char *file :
		     {"mm_event/enabled", "debug/tarn_cma/a/show", "debug/tarn_cma/b/show"})
			if (read_file("/sys/kernel/" + std::string(file)) != "0\n")
				lost.insert(file);
	}
	void add_unplanted(names &lost)
	{
		for (const char *probe : {"folio_add_pin", "try_grab_page", "try_grab_folio"})
			if (log_lines(log_info, std::string(probe) + "_kp Planted").empty())
				lost.insert(probe);
	}
	start_result start_without(const fallible_call &call, mode m)
	{
		forget_log();
		std::optional<fault_scope> fault(std::in_place, call, m);
		const hosted::loaded_module loaded;
		EXPECT_TRUE(fault->hit());
		EXPECT_EQ(loaded.status(), 0);
		fault.reset();

		start_result result{call.name, errors(), {}};
		add_unattached(result.lost);
		add_missing_files(result.lost);
		add_unplanted(result.lost);
		hosted::cma_alloc(area, 1); // leaves a record for the stop to take back
		return result;
	}

	// Starts tracking while a call fails, stops it, and starts it again.
	bool tracking_is_refused_without(const fallible_call &call, mode m)
	{
		const hosted::loaded_module loaded;
		const auto init = loaded.symbol<int()>("tarn_memtrack_init");
		const auto exit = loaded.symbol<void()>("tarn_memtrack_exit");
		const lines before = hosted::leftovers();
		forget_log();
		bool refused = false;
		{
			const fault_scope fault(call, m);
			const int result = init();
			EXPECT_TRUE(fault.hit());
			refused = result != 0;
			EXPECT_EQ(result, refused ? -EINVAL : 0);
		}
		EXPECT_EQ(errors("[tarn_memtrack_init] slub_track_init fail\n").size(), refused);
		EXPECT_EQ(parameter("memtrack_init_state"), refused ? "0\n" : "1\n");
		EXPECT_EQ(hosted::in_use(__tracepoint_android_vh_slab_alloc_node), !refused);
		EXPECT_EQ(hosted::in_use(__tracepoint_android_vh_slab_free), !refused);
		EXPECT_EQ(hosted::leftovers().size() == before.size(), refused);
		exit();
		EXPECT_THAT(hosted::leftovers(), testing::UnorderedElementsAreArray(before));
		EXPECT_EQ(init(), 0);
		exit();
		return refused;
	}

	cma &area = hosted::add_cma_area("a", 0, 512);
	cma &other_area = hosted::add_cma_area("b", 512, 512);
};

TEST_F(lifecycle, each_failure_at_the_start_costs_only_what_depends_on_it)
{
	const std::vector<fallible_call> calls =
		hosted::fallible_calls([] { const hosted::loaded_module loaded; });
	std::vector<start_result> results;
	for (const fallible_call &call : calls) {
		SCOPED_TRACE(call);
		results.push_back(start_without(call, mode::once));
	}

	const char *hook = "tracepoint_probe_register";
	const std::string abort = "[register_abort_mm_opt_vendor_hooks] register_trace_android_vh_";
	const names abort_hooks{"android_vh_madvise_cold_or_pageout_abort",
				"android_vh_compact_finished"};
	const names event_hooks{"android_vh_vmscan_kswapd_done", "android_vh_alloc_pages_slowpath",
				"android_vh_mm_direct_reclaim_enter"};
	names events = event_hooks;
	events.insert("mm_event/enabled");
	const names files{"debug/tarn_cma/a/show", "debug/tarn_cma/b/show"};
	EXPECT_THAT(
		results,
		testing::UnorderedElementsAreArray(std::vector<start_result>{
			{hook,
			 {"[tarn_mem_adapter_init] tarn_updata_page_mapcount register fail, ret "
			  "-12."},
			 {"android_vh_update_page_mapcount"}},
			{hook,
			 {"[tarn_mem_adapter_init] vh_customize_alloc_gfp register fail, ret -12."},
			 {"android_vh_customize_alloc_gfp"}},
			{hook,
			 {abort + "madvise_cold_or_pageout_abort failed! ret=-12"},
			 abort_hooks},
			{hook, {abort + "compact_finished failed! ret=-12"}, abort_hooks},
			{"kobject_create_and_add", {"failed to create mm_event kobject"}, events},
			{"sysfs_create_group", {"failed to register mm_event group"}, events},
			{hook, {"register hook failed!"}, event_hooks},
			{hook, {"register hook failed!"}, event_hooks},
			{hook, {"register hook failed!"}, event_hooks},
			{"stack_depot_init", {"[cma_track_init] stack_depot_init failed!\n"}, {}},
			{"find_tracepoint", {}, {"cma_alloc_finish"}},
			{"find_tracepoint", {}, {"cma_release"}},
			{hook, {}, {"cma_alloc_finish"}},
			{hook, {}, {"cma_release"}},
			{"debugfs_create_dir", {}, files},
			{"debugfs_create_dir", {}, {"debug/tarn_cma/a/show"}},
			{"debugfs_create_dir", {}, {"debug/tarn_cma/b/show"}},
			{"debugfs_create_file", {}, {"debug/tarn_cma/a/show"}},
			{"debugfs_create_file", {}, {"debug/tarn_cma/b/show"}},
			{"register_kprobe",
			 {"folio_add_pin_kp register_kprobe failed, returned -12"},
			 {"folio_add_pin", "try_grab_page", "try_grab_folio"}},
			{"register_kprobe",
			 {"try_grab_page_kp register_kprobe failed, returned -12"},
			 {"try_grab_page", "try_grab_folio"}},
			{"register_kprobe",
			 {"try_grab_folio_kp register_kprobe failed, returned -12"},
			 {"try_grab_folio"}}}));

	// If everything fails from a call on, what depends on it or on later calls is lost.
	names lost;
	for (std::size_t i = calls.size(); i-- > 0;) {
		SCOPED_TRACE(calls[i]);
		lost.insert(results[i].lost.begin(), results[i].lost.end());
		EXPECT_EQ(start_without(calls[i], mode::from_then_on).lost, lost);
	}
}

TEST_F(lifecycle, tracking_starts_as_a_whole_or_not_at_all)
{
	std::vector<fallible_call> calls;
	{
		const hosted::loaded_module loaded;
		calls = hosted::fallible_calls(
			[&] { loaded.symbol<int()>("tarn_memtrack_init")(); });
		loaded.symbol<void()>("tarn_memtrack_exit")();
	}
	std::vector<bool> refused;
	lines needed, spared;
	for (const fallible_call &call : calls) {
		SCOPED_TRACE(call);
		refused.push_back(tracking_is_refused_without(call, mode::once));
		(refused.back() ? needed : spared).push_back(call.name);
	}
	EXPECT_THAT(needed,
		    testing::UnorderedElementsAre(
			    "kmem_cache_create", "android_debug_symbol", "android_debug_symbol",
			    "tracepoint_probe_register", "tracepoint_probe_register",
			    "kthread_create_on_node", "kthread_create_on_node"));
	EXPECT_THAT(spared, testing::UnorderedElementsAre(
				    "stack_depot_init", "tracepoint_probe_register",
				    "tracepoint_probe_register", "register_vmap_purge_notifier"));

	bool later_refused = false;
	for (std::size_t i = calls.size(); i-- > 0;) {
		SCOPED_TRACE(calls[i]);
		later_refused |= refused[i];
		EXPECT_EQ(tracking_is_refused_without(calls[i], mode::from_then_on), later_refused);
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

TEST_F(lifecycle, a_stop_cancels_the_timer_and_the_queued_report)
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
