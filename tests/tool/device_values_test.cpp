// SPDX-License-Identifier: GPL-2.0-only
// Thresholds and page counts, on a device that is played here.
#include <stdexcept>

#include <gtest/gtest.h>
#include <tarnctl/device/pages.h>
#include <tarnctl/device/thresholds.h>

namespace tarn
{

namespace
{

class fake_device : public ioctl_device
{
public:
	int call(unsigned long request, void *argument) override
	{
		auto *record = static_cast<memcheck_threshold *>(argument);

		calls++;
		if (request == TARN_IOC_SET_THRESHOLDS)
			set = *record;
		else if (request == TARN_IOC_GET_THRESHOLDS)
			*record = {record->mask, 1, 2, 3, record->mask};
		else if (request == TARN_IOC_GET_PAGES)
			*static_cast<tarn_page_counts *>(argument) = {1, 2, 3, 4, 5, UINT64_MAX};
		return result;
	}

	memcheck_threshold set = {};
	int calls = 0;
	int result = 0;
};

} // namespace

TEST(thresholds, of_one_command_are_set_in_one_call)
{
	fake_device device;

	set_thresholds(device, parse_thresholds({"vmalloc_leak_k=4294967295", "slab_k=0"}));
	EXPECT_EQ(device.calls, 1);
	EXPECT_EQ(device.set.mask, TH_VMALLOC_LEAK_K | TH_SLAB_K);
	EXPECT_EQ(device.set.vmalloc_leak_k, UINT32_MAX);
	EXPECT_EQ(device.set.slab_k, 0U);
	EXPECT_EQ(thresholds_text(get_thresholds(device)),
		  "slab_k 1 kB\nvmalloc_k 2 kB\nslab_leak_k 3 kB\nvmalloc_leak_k 15 kB\n");
	EXPECT_EQ(thresholds_json({0, 1, 2, 3, UINT32_MAX}),
		  "{\n  \"slab_k\": 1,\n  \"vmalloc_k\": 2,\n  \"slab_leak_k\": 3,\n"
		  "  \"vmalloc_leak_k\": 4294967295\n}\n");
	device.result = -14;
	EXPECT_THROW(get_thresholds(device), device_error);
}

TEST(thresholds, are_set_by_known_names_and_whole_numbers)
{
	for (const char *bad :
	     {"", "=", "slab_k", "slab_k=", "slab=1", "=1", "slab_k=-1", "slab_k=+1", "slab_k= 1",
	      "slab_k=1k", "slab_k=0x1", "slab_k=4294967296", "slab_k=1=2"})
		EXPECT_THROW(parse_thresholds({bad}), std::invalid_argument) << bad;
	EXPECT_THROW(parse_thresholds({"slab_k=1", "slab_k=1"}), std::invalid_argument);
}

TEST(pages, are_printed_for_people_and_for_programs)
{
	fake_device device;
	const tarn_page_counts counts = get_pages(device);

	EXPECT_EQ(pages_text(counts), "total_reserve 1\nfree 2\nfile 3\nanon 4\nzram 5\n"
				      "zram_watermark 18446744073709551615\n");
	EXPECT_TRUE(pages_json(counts).starts_with("{\n  \"total_reserve\": 1,\n  \"free\": 2,"));
}

} // namespace tarn
