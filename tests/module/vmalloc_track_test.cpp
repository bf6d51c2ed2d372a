// SPDX-License-Identifier: GPL-2.0-only
// vmalloc tracking: notifications of growth and exhaustion, and stacks in the kernel's listing.
#include <optional>

#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/clock.h>
#include <hosted/vmalloc.h>
#include <kernel/stackdepot.h>
#include <platform/hosted/lmkd.h>

#include "fixture.h"

namespace
{

using namespace module_tests;

class vmalloc_track : public module_test
{
protected:
	void SetUp() override
	{
		start();
		daemon_.emplace(100);
		daemon_->handshake();
		ASSERT_GT(set_parameter("vmalloc_leak_k", "4096"), 0);
	}
	// Returns the notifications when an area is set up while so many pages are in use.
	long area_at(unsigned long pages)
	{
		hosted::set_vmalloc_base(pages);
		hosted::release_area(hosted::vmalloc_area(4096));
		return notified();
	}
	// Returns the notifications when the address space has no room.
	long exhaust()
	{
		hosted::set_vmalloc_space(0);
		EXPECT_FALSE(hosted::vmalloc_area(4096));
		hosted::set_vmalloc_space(64);
		return notified();
	}
	long notified()
	{
		return std::ranges::count(daemon_->collect(), 16u,
					  &platform::lmkd_notification::value);
	}

	std::optional<platform::lmkd> daemon_;
};

TEST_F(vmalloc_track, growth_notifies_at_the_threshold_once_per_interval)
{
	EXPECT_EQ(area_at(1023), 0);
	EXPECT_EQ(area_at(1024), 1);
	EXPECT_EQ(area_at(1024), 0);
	hosted::advance(7500);
	EXPECT_EQ(area_at(5000), 0);
	hosted::advance(1);
	EXPECT_EQ(area_at(1023), 0);
	EXPECT_EQ(area_at(1024), 1);
	EXPECT_EQ(log_lines(log_warning),
		  lines{"vmalloc_maybe_need_notify: 2 callbacks suppressed\n"});
}

TEST_F(vmalloc_track, exhaustion_notifies_at_its_own_rate_without_a_threshold)
{
	hosted::set_vmalloc_base(0);
	EXPECT_EQ(exhaust(), 1);
	EXPECT_EQ(area_at(1024), 1);
	EXPECT_EQ(exhaust(), 0);
	hosted::advance(7501);
	EXPECT_EQ(exhaust(), 1);
	EXPECT_EQ(exhaust(), 0);
	EXPECT_EQ(log_lines(log_warning),
		  lines{"memtrack_vmap_purge_notify: 1 callbacks suppressed\n"});
	EXPECT_EQ(internal<s64>("mm_event_arr")[7], 1); // only growth counts as an event
}

TEST_F(vmalloc_track, areas_made_while_it_is_on_show_their_stacks)
{
	std::vector<unsigned long> stack;
	stack.reserve(7);
	for (int i = 0; i < 7; i++)
		stack.push_back(hosted::symbol_address(fmt::format("caller{}", i), 0x4, 0x40));
	const hosted::frame_scope frames(stack);
	hosted::vmalloc_area(4096);
	client.command(MEMTYPE_VMALLOC, MEMCHECK_CMD_ON);
	hosted::vmalloc_area(12000);
	{
		const hosted::fault_scope fail("stack_depot_save");
		hosted::vmalloc_area(4096);
		EXPECT_TRUE(fail.hit());
	}
	client.command(MEMTYPE_VMALLOC, MEMCHECK_CMD_OFF);
	hosted::vmalloc_area(4096);
	const std::string listing = hosted::vmallocinfo();

	// Seven frames: the allocator's own frame is not skipped, so the outermost one is cut off.
	stack.insert(stack.begin(), hosted::symbol_address("__vmalloc_node_range", 0xa8, 0x6e0));
	stack.pop_back();
	const std::string tagged = hosted::symbol_text(
		0x12345678UL << 32 | stack_depot_save(stack.data(), 7, GFP_ATOMIC));
	std::string stack_text = fmt::format("\nvmalloc_stack {} {:7} 3 7\n", tagged, 16384);
	for (const unsigned long frame : stack)
		stack_text += fmt::format("    {}\n", hosted::symbol_text(frame));
	client.stop();
	std::string expected = hosted::vmallocinfo(); // only the kernel's part
	expected.insert(expected.find('\n', expected.find(tagged)), stack_text);
	EXPECT_EQ(listing, expected);
	client.start();
	EXPECT_EQ(hosted::vmallocinfo(), expected);
}

} // namespace
