// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/loader.h>

#include <hosted/sysfs.h>

#include "kernel_test.h"

using namespace kernel_tests;
using hosted::loaded_module;

namespace
{

const std::string parameters = "/sys/module/tarn_mem_adapter/parameters/";

std::string read(const char *parameter)
{
	std::string text;
	const int error = hosted::read_file(parameters + parameter, text);
	return error == 0 ? text : std::to_string(error);
}

using loader = kernel_test;
using params = kernel_test;
using loader_death = kernel_test;

TEST_F(loader, loads_one_module_at_a_time_with_fresh_data)
{
	for (int i = 0; i < 2; i++) {
		loaded_module m;
		ASSERT_EQ(m.status(), 0);
		EXPECT_EQ(loaded_module().status(), -EEXIST);
		unsigned *slab_k = m.internal<unsigned>("slab_k");
		ASSERT_TRUE(slab_k);
		EXPECT_EQ(*slab_k, 1048576U);
		*slab_k = 1;
		EXPECT_TRUE(m.symbol<int(unsigned)>("lmkd_notify"));
		EXPECT_FALSE(m.symbol<int()>("tarn_mem_adapter_init")) << "not exported";
		EXPECT_TRUE(m.internal<int()>("tarn_mem_adapter_init"));
		ASSERT_TRUE(m.get());
		EXPECT_EQ(m.unload(), -EAGAIN) << "it has a user";
		m.put();
		EXPECT_EQ(m.unload(), 0);
		EXPECT_EQ(m.unload(), -ENOENT);
		EXPECT_EQ(read("slab_k"), std::to_string(-ENOENT));
	}
}

TEST_F(loader_death, stops_what_is_left_behind)
{
	const auto left_behind = [] {
		loaded_module m;
		m.symbol<int()>("tarn_memory_netlink_init")();
		m.unload();
	};
	EXPECT_DEATH(left_behind(), "left behind at module unload(.|\n)*netlink socket of unit 31");
	EXPECT_DEATH(loaded_module().get(), "still in use");
	EXPECT_DEATH(loaded_module().put(), "use count");
}

TEST_F(params, arguments_are_set_before_the_start_or_refused)
{
	{
		const loaded_module m({"slab_k=0x10", "nonsense=1", "specified_target=kmalloc-64"});
		ASSERT_EQ(m.status(), 0);
		EXPECT_EQ(read("slab_k"), "16\n");
		EXPECT_EQ(read("specified_target"), "kmalloc-64\n");
		EXPECT_EQ(hosted::take_log().at(0).text,
			  "tarn_mem_adapter: unknown parameter 'nonsense' ignored\n");
	}
	EXPECT_EQ(loaded_module({"slab_k=many"}).status(), -EINVAL);
	EXPECT_EQ(loaded_module({"slab_k=4294967296"}).status(), -ERANGE);
	EXPECT_EQ(loaded_module().status(), 0) << "failed loads left nothing";
}

TEST_F(params, values_follow_the_kernels_rules)
{
	const loaded_module m;
	const std::string longest(1024, 'x');
	const struct {
		const char *parameter;
		std::string text;
		long result;
		std::string value;
	} cases[] = {
		{"slab_k", "4294967295\n", 11, "4294967295\n"},
		{"slab_k", "+010", 4, "8\n"},
		{"slab_k", "4294967296", -ERANGE, "8\n"},
		{"slab_k", "-1", -EINVAL, "8\n"},
		{"slub_track_flag", "-2147483648", 11, "-2147483648\n"},
		{"slub_track_flag", "2147483648", -ERANGE, "-2147483648\n"},
		{"netlink_init", "1", -EACCES, "0\n"},
		{"specified_target", longest + 'x', -ENOSPC, "(null)\n"},
		{"specified_target", longest, 1024, longest + '\n'},
		{"specified_target", "dentry\n", 7, "dentry\n\n"},
	};
	for (const auto &c : cases) {
		EXPECT_EQ(hosted::write_file(parameters + c.parameter, c.text), c.result)
			<< c.parameter << '=' << c.text;
		EXPECT_EQ(read(c.parameter), c.value) << c.parameter << '=' << c.text;
	}
}

} // namespace
