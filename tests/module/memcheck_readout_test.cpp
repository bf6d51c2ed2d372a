// SPDX-License-Identifier: GPL-2.0-only
// The memcheck readout: the request, the text, and how it is cut off.
#include <fmt/format.h>
#include <hosted/vendor_hooks.h>
#include <kernel/stackdepot.h>
#include <memcheck.h>

#include "slub_fixture.h"

namespace
{

using namespace module_tests;

// Hunts in one cache: a task allocates 50 objects at one place and frees 50 at another.
class readout : public slub_test
{
protected:
	void SetUp() override
	{
		slub_test::SetUp();
		hosted::allocate(*cache_, GFP_KERNEL);
		choose("victim");
	}
	void hunt()
	{
		ASSERT_EQ(command(on), 0);
		allocate_in("leak_open", *cache_, 50, "leaker", 321);
		const hosted::task_ptr task = hosted::make_task("leaker", 321);
		const hosted::task_scope as(*task);
		const hosted::frame_scope in(path("leak_close"));
		record_free(*cache_, 50);
		ASSERT_EQ(command(off), 0);
		forget_log();
	}
	static std::string record(const char *place)
	{
		std::vector<unsigned long> stack = path(place);
		stack_depot_init();
		return fmt::format("[{:#x} c:(50/50) (p:321-321) leaker]\n"
				   "  {}+0x10/0x80\n  invoke_syscall+0x48/0x114\n",
				   stack_depot_save(stack.data(), 2, GFP_ATOMIC), place);
	}
	// Reads with room for size bytes, and checks that bytes after the text are not written.
	std::string text(std::size_t size)
	{
		memcheck_info info{MEMTYPE_SLUB, 0, size};
		hosted::user_buffer user(sizeof(info) + size + 1);
		std::ranges::fill(user.bytes(), std::byte{0xee});
		std::memcpy(user.bytes().data(), &info, sizeof(info));
		EXPECT_EQ(client.leak_read(user.address()), 0);
		std::memcpy(&info, user.bytes().data(), sizeof(info));
		const auto payload = user.bytes().subspan(sizeof(info));
		EXPECT_TRUE(std::ranges::all_of(payload.subspan(info.size),
						[](std::byte b) { return b == std::byte{0xee}; }));
		return {reinterpret_cast<const char *>(payload.data()), info.size};
	}

	kmem_cache *const cache_ = hosted::add_cache("victim", 64);
	const std::string alloc_head_ = "@@@@@victim SLUB_ALLOC@@@@@\n";
	const std::string free_head_ = "@@@@@victim SLUB_FREE@@@@@\n";
	const std::string alloc_text_ = alloc_head_ + record("leak_open");
	const std::string free_text_ = free_head_ + record("leak_close");
	const std::string whole_ = alloc_text_ + free_text_;
};

TEST_F(readout, the_size_is_checked_before_the_type)
{
	for (const auto &[type, size, refusal] :
	     {std::tuple{1u, 0ul, "wrong size 0"},
	      {2, 5242881, "wrong size 5242881"},
	      {2, UINT64_MAX, "wrong size 18446744073709551615"},
	      {0, 64, "wrong type 0"},
	      {0xfffffff9, 5242880, "wrong type -7"},
	      {4, 5242880, ""},
	      {2, 1, ""}}) {
		SCOPED_TRACE(fmt::format("{} {}", type, size));
		forget_log();
		const auto read = client.read_stacks(type, size);
		EXPECT_EQ(read.status, *refusal ? -EINVAL : 0);
		EXPECT_EQ(read.header.size, *refusal ? size : 0);
		EXPECT_EQ(errors(fmt::format("_leak_read] {}\n", refusal)).size(), *refusal != 0);
	}
	EXPECT_EQ(log_lines(log_info),
		  (lines{"[memcheck_get_slub_stack] empty SLUB_ALLOC stack record\n",
			 "[memcheck_get_slub_stack] empty SLUB_FREE stack record\n"}));
}

TEST_F(readout, every_size_gets_the_beginning_of_the_text)
{
	for (std::size_t size = 1; size <= whole_.size() + 2; size++) {
		SCOPED_TRACE(size);
		ASSERT_NO_FATAL_FAILURE(hunt());
		ASSERT_EQ(text(size), whole_.substr(0, size - 1));

		// A full text ends the readout, with a message unless a kind's header filled it.
		const bool in_alloc = size - 1 <= alloc_text_.size();
		const std::size_t head =
			in_alloc ? alloc_head_.size() : alloc_text_.size() + free_head_.size();
		const bool message = size - 1 > head && size - 1 <= whole_.size();
		const std::string full =
			fmt::format("fail ret_num:1 num:8192 used:{} total:{}\n", size - 1, size);
		EXPECT_EQ(errors(full).size(), message);
		ASSERT_EQ(text(4096), in_alloc ? free_text_ : "");
	}
}

TEST_F(readout, user_memory_that_faults_is_an_error)
{
	for (std::size_t at = 0; at < sizeof(memcheck_info); at++) {
		user_record user(memcheck_info{MEMTYPE_SLUB, 0, 4096});
		user.fault(at, 1);
		forget_log();
		EXPECT_EQ(client.leak_read(user.address()), -EFAULT) << at;
		EXPECT_EQ(errors(), lines{"[tarn_process_leak_read] copy from_user failed\n"});
	}
	struct request {
		memcheck_info info{MEMTYPE_SLUB, 0, 1024};
		char payload[1024] = {};
	};
	for (const std::size_t at : {std::size_t{0}, whole_.size() - 1, whole_.size()}) {
		hunt();
		user_record<request> user({});
		user.fault(sizeof(memcheck_info) + at, 1);
		const bool fails = at < whole_.size();
		EXPECT_EQ(client.leak_read(user.address()), fails ? -EFAULT : 0) << at;
		EXPECT_EQ(user.value().info.size, whole_.size());
		EXPECT_EQ(errors("] payload copy to user failed\n").size(), fails);
		EXPECT_EQ(text(1024), "");
	}

	// The header goes away between the two copies: when the readout gets its text buffer.
	user_record<request> user({});
	auto *probe = reinterpret_cast<void *>(+[](void *record, unsigned long, vm_struct *) {
		static_cast<user_record<request> *>(record)->fault(7, 1);
	});
	tracepoint_probe_register(&__tracepoint_android_vh_save_vmalloc_stack, probe, &user);
	EXPECT_EQ(client.leak_read(user.address()), -EFAULT);
	tracepoint_probe_unregister(&__tracepoint_android_vh_save_vmalloc_stack, probe, &user);
	EXPECT_EQ(errors("] copy to user failed\n").size(), 1u);
}

TEST_F(readout, out_of_memory_loses_nothing)
{
	hunt();
	for (const unsigned n : {1, 2, 3}) { // the text, the records of each kind
		const hosted::fault_scope fail("vzalloc", n);
		EXPECT_EQ(client.read_stacks(MEMTYPE_SLUB, 1024).status, -ENOMEM);
	}
	EXPECT_EQ(text(1024), whole_);
}

TEST_F(readout, shows_the_heaviest_25_records)
{
	ASSERT_EQ(command(on), 0);
	for (int i = 0; i < 26; i++)
		allocate_in(fmt::format("place{}", i), *cache_, 50 + i);
	ASSERT_EQ(command(off), 0);
	const std::string shown = text(65536);
	for (int i = 0; i < 26; i++)
		EXPECT_EQ(shown.find(fmt::format("  place{}+", i)) != std::string::npos, i >= 1);
	EXPECT_EQ(text(65536), "");
}

} // namespace
