// SPDX-License-Identifier: GPL-2.0-only
// Reading what there is about a CMA area: the module's files, the kernel's and the log.
#include <filesystem>
#include <fstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarnctl/cma/cma_reader.h>
#include <tarnctl/device/device_error.h>

#include "cma_lines.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

class fake_files
{
public:
	fake_files()
	{
		put("sys/kernel/debug/tarn_cma/cma a/show", "0\n");
		put("sys/kernel/debug/tarn_cma/b/show", "0\n");
		put("sys/kernel/debug/tarn_cma/bb/show", "0\n");
		put("sys/kernel/debug/cma/cma a/order_per_bit", "1\n");
		put("sys/module/tarn_mem_adapter/parameters/cma_target", "cma a\n");
		put("sys/module/tarn_mem_adapter/parameters/cma_warn_limit_permillage", "-3\n");
	}

	~fake_files()
	{
		std::filesystem::remove_all(root);
	}

	void put(const std::string &file, const std::string &text) const
	{
		const std::filesystem::path path = root + "/" + file;

		std::filesystem::create_directories(path.parent_path());
		std::ofstream(path) << text;
	}

	// The log brings one report an attempt; the last of them again and again.
	cma_area read(const std::vector<std::vector<std::string>> &reports)
	{
		return cma_reader(root).read("cma a", [this, &reports] {
			const std::size_t at = std::min(logs.size(), reports.size() - 1);

			logs.emplace_back();
			for (const std::string &line : reports[at])
				logs.back().say(line);
			return std::move(logs.back().log);
		});
	}

	std::string root = testing::TempDir() + "cma_" + std::to_string(getpid());
	std::vector<played_log> logs;
};

} // namespace

TEST(cma_reader, are_read_again_until_the_report_stands_alone)
{
	fake_files files;
	const cma_area area = files.read({{}, {summary, frame}, {summary, first, frame}, {}});

	EXPECT_EQ(files.logs.size(), 3U);
	EXPECT_FALSE(area.report.mixed);
	EXPECT_EQ(area.report.records.size(), 1U);
	EXPECT_EQ(area.order, 1U);
	EXPECT_EQ(area.limit_permillage, -3);
}

TEST(cma_reader, tells_its_own_report_by_its_task)
{
	fake_files files;
	played_log log;

	for (const std::string &line : {summary, second, frame})
		log.record("6,1,1,-,caller=T1;" + line);
	for (const std::string &line : {summary, first, frame})
		log.record(fmt::format("6,1,1,-,caller=T{};{}", gettid(), line));
	const cma_area area =
		cma_reader(files.root).read("cma a", [&log] { return std::move(log.log); });

	ASSERT_EQ(area.report.records.size(), 1U);
	EXPECT_EQ(area.report.records[0].first_pfn, 4096U);
}

TEST(cma_reader, reads_how_much_the_module_could_not_record)
{
	fake_files files;

	EXPECT_EQ(files.read({{summary}}).unrecorded, std::nullopt) << "an older module";
	files.put("sys/module/tarn_mem_adapter/parameters/cma_unrecorded", "3\n");
	EXPECT_EQ(files.read({{summary}}).unrecorded, 3U);
}

TEST(cma_reader, that_do_not_tell_all_leave_it_open)
{
	fake_files files;

	files.put("sys/kernel/debug/cma/cma a/order_per_bit", "64\n");
	files.put("sys/module/tarn_mem_adapter/parameters/cma_target", "cma\n");
	const cma_area area = files.read({{summary, frame}, {}});

	EXPECT_TRUE(area.report.mixed) << "of all attempts there is no better one";
	EXPECT_EQ(area.order, std::nullopt);
	EXPECT_EQ(area.limit_permillage, std::nullopt);
	EXPECT_THROW(files.read({{}}), device_error);
}

TEST(cma_reader, reads_the_other_areas_if_one_cannot_be_read)
{
	fake_files files;
	std::filesystem::remove(files.root + "/sys/kernel/debug/tarn_cma/b/show");
	const cma_areas all = cma_reader(files.root).read_all({"b", "cma a"}, [&files] {
		files.logs.emplace_back().say(summary);
		return std::move(files.logs.back().log);
	});

	ASSERT_EQ(all.areas.size(), 1U);
	EXPECT_EQ(all.areas[0].report.name, "cma a");
	ASSERT_EQ(all.unreadable.size(), 1U);
	EXPECT_EQ(all.unreadable[0].name, "b");
	EXPECT_THAT(all.unreadable[0].reason, HasSubstr("tarn_cma/b/show: No such file"));
	EXPECT_THROW((void)cma_reader(files.root)
			     .read_all({"b", "cma a"},
				       []() -> kernel_log { throw no_kernel_log("closed"); }),
		     no_kernel_log);
}

TEST(cma_reader, name_the_areas_that_there_are)
{
	const fake_files files;
	const cma_reader cma(files.root);
	const auto no_log = [] {
		return kernel_log(file_descriptor());
	};

	EXPECT_THAT(cma.names(), ElementsAre("b", "bb", "cma a"));
	EXPECT_THROW((void)cma.read("cma", no_log), unknown_area);
	EXPECT_THROW((void)cma.read("b/../b", no_log), unknown_area);
	EXPECT_THROW((void)cma_reader(files.root + "/none").names(), device_error);
}

} // namespace tarn
