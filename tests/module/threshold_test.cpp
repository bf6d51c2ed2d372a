// SPDX-License-Identifier: GPL-2.0-only
// Leak thresholds: the record, the parameter files and the comparisons.
#include <array>

#include <hosted/vmalloc.h>
#include <hosted/vmstat.h>

#include "fixture.h"

namespace
{

using namespace module_tests;
using testing::Each;
using values = std::array<std::uint32_t, 4>;

// In the order of their selector bits.
constexpr std::array names = {"slab_k", "vmalloc_k", "slab_leak_k", "vmalloc_leak_k"};

class thresholds : public module_test
{
protected:
	static values current()
	{
		values now;
		for (unsigned i = 0; i < 4; i++)
			now[i] = static_cast<std::uint32_t>(std::stoul(parameter(names[i])));
		return now;
	}
};

TEST_F(thresholds, the_mask_selects_what_is_set_and_read)
{
	for (unsigned mask = 0; mask < 32; mask++) {
		SCOPED_TRACE(mask);
		client.set_thresholds({15, 100, 200, 300, 400});
		EXPECT_EQ(client.set_thresholds({mask, 0, 0xffffffff, 3, 4}), 0);
		memcheck_threshold record{mask, 11, 12, 13, 14};
		EXPECT_EQ(client.get_thresholds(record), 0);
		values now = {100, 200, 300, 400}, got = {11, 12, 13, 14};
		for (unsigned i = 0; i < 4; i++)
			if (mask >> i & 1)
				now[i] = got[i] = values{0, 0xffffffff, 3, 4}[i];
		EXPECT_EQ(current(), now);
		EXPECT_EQ((values{record.slab_k, record.vmalloc_k, record.slab_leak_k,
				  record.vmalloc_leak_k}),
			  got);
	}
}

TEST_F(thresholds, a_record_that_faults_changes_nothing)
{
	const memcheck_threshold record{15, 1, 2, 3, 4};
	for (std::size_t at = 0; at < sizeof(record); at++) {
		user_record user(record);
		user.fault(at, 1);
		forget_log();
		EXPECT_EQ(client.set_th(user.address()), -EFAULT) << at;
		EXPECT_EQ(client.get_val(user.address()), -EFAULT) << at;
		EXPECT_EQ(errors(), (lines{"[tarn_process_set_th] copy from user failed\n",
					   "[tarn_process_get_val] copy from user failed\n"}));
	}
	EXPECT_THAT(current(), Each(1048576u));
}

TEST_F(thresholds, slab_must_exceed_and_vmalloc_must_reach)
{
	const char *predicates[] = {"tarn_should_dump_unreclaim_slab", "tarn_should_dump_vmalloc",
				    "tarn_should_detect_slab_leak",
				    "tarn_should_detect_vmalloc_leak"};
	for (unsigned i = 0; i < 4; i++) {
		SCOPED_TRACE(predicates[i]);
		const bool slab = i % 2 == 0;
		const auto holds_at = [&](long pages) {
			hosted::set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, slab ? pages : 0);
			hosted::set_vmalloc_base(slab ? 0 : static_cast<unsigned long>(pages));
			return exported<bool()>(predicates[i])();
		};
		client.set_thresholds({15, UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX});
		set_parameter(names[i], "4096");
		EXPECT_FALSE(holds_at(1023));
		EXPECT_EQ(holds_at(1024), !slab);
		EXPECT_TRUE(holds_at(1025));
		EXPECT_TRUE(holds_at(1L << 30 | 1)); // more KiB than fit in 32 bits
		client.set_thresholds({15, 0, 0, 0, 0});
		EXPECT_EQ(holds_at(0), !slab);
		EXPECT_TRUE(holds_at(1));
	}
	hosted::set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, -1);
	EXPECT_FALSE(exported<bool()>("tarn_should_detect_slab_leak")());
}

TEST_F(thresholds, defaults_are_a_twelfth_of_ram)
{
	const auto init = exported<int()>("tarn_meminfo_parameter_init");
	for (const auto &[pages, kib] : {std::pair{2097152L, 699050u}, {(1L << 30) + 302, 100}}) {
		hosted::set_totalram(pages); // the second is 2^32 + 1208 KiB
		EXPECT_EQ(init(), 0);
		EXPECT_THAT(current(), Each(kib));
	}
}

} // namespace
