// SPDX-License-Identifier: GPL-2.0-only
// The memcheck device's commands.
#include <memcheck.h>

#include "slub_fixture.h"

namespace
{

using namespace module_tests;

class memcheck_commands : public slub_test
{
protected:
	// Runs a command and checks its status and the line that the dispatcher logs, if any.
	void expect(std::uint32_t memtype, std::uint32_t cmd, int status,
		    const std::string &line = {})
	{
		forget_log();
		EXPECT_EQ(client.command(memtype, cmd), status) << memtype << ' ' << cmd;
		EXPECT_EQ(errors("[memcheck_"), line.empty() ? lines{} : lines{line + '\n'});
	}
};

TEST_F(memcheck_commands, unknown_memory_types_and_commands_are_refused)
{
	for (const std::uint32_t memtype : {0u, 1u, 0xfffffff9u})
		for (const std::uint32_t cmd : {prepare, on, off, 3u})
			expect(memtype, cmd, 0, "[memcheck_do_command] unsupported operation");
	const std::string refused = "[memcheck_do_kernel_command] ";
	expect(6, prepare, -EINVAL, refused + "trace prepare failed, memtype=6");
	expect(3, on, -EINVAL, refused + "trace on failed, memtype=3");
	expect(0xffffffff, off, -EINVAL, refused + "trace off failed, memtype=-1");
	expect(MEMTYPE_SLUB, 3, -EINVAL, refused + "Unsupported cmd=3");
	expect(5, 0xffffffff, -EINVAL, refused + "Unsupported cmd=-1");
}

TEST_F(memcheck_commands, slab_commands_pass_on_the_target_and_the_trackers_errors)
{
	const std::string refused = "[memcheck_do_kernel_command] trace ";
	expect(MEMTYPE_SLUB, on, -EINVAL, refused + "on failed, memtype=2");
	hosted::allocate(*hosted::add_cache("victim", 256), GFP_KERNEL);
	expect(MEMTYPE_SLUB, prepare, 0);
	EXPECT_STREQ(internal<char>("top_slub_name"), "victim");
	{
		const hosted::fault_scope fail("vmalloc");
		expect(MEMTYPE_SLUB, on, -ENOMEM, refused + "on failed, memtype=2");
	}
	expect(MEMTYPE_SLUB, on, 0);
	expect(MEMTYPE_SLUB, off, 0);
}

TEST_F(memcheck_commands, the_record_is_only_read_and_vmalloc_needs_no_target)
{
	memcheck_command command;
	std::memset(&command, 0xa5, sizeof(command));
	command.memtype = MEMTYPE_VMALLOC;
	command.cmd = on;
	for (std::size_t at = 0; at < sizeof(command); at++) {
		user_record user(command);
		user.fault(at, 1);
		forget_log();
		EXPECT_EQ(client.leak_detect(user.address()), -EFAULT) << at;
		EXPECT_EQ(errors(), lines{"[tarn_process_leak_detect] copy_from_user failed\n"});
	}
	expect(MEMTYPE_VMALLOC, prepare, 0);
	EXPECT_EQ(parameter("vmalloc_track_flag"), "0\n");
	user_record user(command);
	EXPECT_EQ(client.leak_detect(user.address()), 0);
	EXPECT_EQ(parameter("vmalloc_track_flag"), "1\n");
	const memcheck_command after = user.value();
	EXPECT_EQ(std::memcmp(&after, &command, sizeof(command)), 0);
	expect(MEMTYPE_VMALLOC, off, 0);
	EXPECT_EQ(parameter("vmalloc_track_flag"), "0\n");
}

} // namespace
