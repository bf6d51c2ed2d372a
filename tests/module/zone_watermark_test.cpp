// SPDX-License-Identifier: GPL-2.0-only
// The watermark check, compared with its rule in plain code on random machines.
#include <array>
#include <numeric>

#include <fmt/format.h>
#include <hosted/cpumask.h>
#include <hosted/mmzone.h>
#include <rapidcheck.h>

#include "fixture.h"

using namespace hosted;
using namespace module_tests;

namespace
{

constexpr int zones = KERNEL_MAX_NR_ZONES;
constexpr unsigned cpus = KERNEL_NR_CPUS;

struct zone_model {
	std::string name = "Normal";
	zone_state state{};
	std::array<signed char, cpus> diffs{};
	std::array<std::array<unsigned, free_list_types>, free_area_orders> lists{};
	std::array<unsigned long, free_area_orders> blocks{};
};

struct machine_model {
	std::array<zone_model, zones> zone{};
	std::array<bool, cpus> online{};

	long pending(const zone_model &z) const
	{
		long sum = 0;
		for (unsigned cpu = 0; cpu < cpus; cpu++)
			sum += online[cpu] ? z.diffs[cpu] : 0;
		return sum;
	}
	static long threshold(const zone_model &z, int index, unsigned order)
	{
		const auto mark =
			static_cast<int>(z.state.high_wmark + z.state.boost + (1UL << order));
		return mark + z.state.lowmem_reserve[index];
	}
	static long unusable(const zone_model &z, unsigned order)
	{
		return (1L << order) - 1 + static_cast<long>(z.state.reserved_highatomic) +
		       std::max(z.state.free_cma, 0L);
	}
	static bool has_block(const zone_model &z, unsigned order)
	{
		for (unsigned o = order; o < 10; o++)
			if (z.blocks[o] && (z.lists[o][0] || z.lists[o][1] || z.lists[o][2]))
				return true;
		return order == 0;
	}
	bool passes(const zone_model &z, int index, unsigned order) const
	{
		if (z.name == "DMA32")
			return true;
		if (order > 9)
			return false;
		long free = std::max(z.state.free, 0L);
		if (static_cast<unsigned long>(free) < z.state.drift_mark)
			free = std::max(z.state.free + pending(z), 0L);
		return free - unusable(z, order) > threshold(z, index, order) &&
		       has_block(z, order);
	}
	bool ok(int index, unsigned order) const
	{
		for (int i = index; i >= 0; i--)
			if (i >= zones || !passes(zone[i], index, order))
				return false;
		return true;
	}
};

enum class action { number, balance, balance_of_snapshot, blocks, count, diff, online, name };

struct step {
	action what;
	int zone;
	int index; // or a list
	unsigned order;
	unsigned cpu;
	long value;
};

std::ostream &operator<<(std::ostream &os, const step &s)
{
	return os << fmt::format("{{{} zone {} index {} order {} cpu {} value {}}}", int(s.what),
				 s.zone, s.index, s.order, s.cpu, s.value);
}

rc::Gen<step> any_step()
{
	using rc::gen::inRange;
	return rc::gen::construct<step>(
		rc::gen::weightedElement<action>({{3, action::number},
						  {6, action::balance},
						  {3, action::balance_of_snapshot},
						  {6, action::blocks},
						  {1, action::count},
						  {4, action::diff},
						  {2, action::online},
						  {1, action::name}}),
		inRange(0, zones), inRange(0, zones), inRange(0U, free_area_orders),
		rc::gen::element(0U, 1U, 63U, 64U, cpus - 1),
		rc::gen::weightedOneOf<long>(
			{{4, inRange(-2L, 3L)},
			 {3, inRange(-200L, 5000L)},
			 {1, rc::gen::element(-1L << 40, 0x7fffff00L, 0x80000000L, 1L << 40)}}));
}

class zone_watermark : public module_test
{
protected:
	void begin_again()
	{
		machine = {};
		for (unsigned cpu = 0; cpu < cpus; cpu++)
			set_cpu_online(cpu, machine.online[cpu] = cpu < 2 || cpu == 64);
		for (int i = 0; i < zones; i++) {
			zone_model &z = machine.zone[i];
			z.name = i == 0 ? "DMA32" : "Normal";
			z.state.free = 8000;
			for (unsigned cpu = 0; cpu < cpus; cpu++)
				set_free_pages_diff(i, cpu, 0);
			for (unsigned order = 0; order < free_area_orders; order++)
				for (int list = 0; list < free_list_types; list++)
					set_list(i, order, list, order == 9 && list == 1);
			apply(i);
		}
	}
	void apply(int i)
	{
		set_zone(i, machine.zone[i].state);
		set_zone_name(i, machine.zone[i].name.c_str());
	}
	void set_list(int i, unsigned order, int list, unsigned blocks)
	{
		zone_model &z = machine.zone[i];
		z.lists[order][list] = blocks;
		z.blocks[order] =
			std::accumulate(z.lists[order].begin(), z.lists[order].end(), 0UL);
		set_free_blocks(i, order, list, blocks);
	}
	static void set_number(zone_state &state, const step &s)
	{
		const auto count = static_cast<unsigned long>(std::max(s.value, 0L));
		switch (s.order % 7) {
		case 0:
			state.free = s.value;
			break;
		case 1:
			state.free_cma = s.value;
			break;
		case 2:
			state.reserved_highatomic = count;
			break;
		case 3:
			state.drift_mark = static_cast<unsigned long>(s.value);
			break;
		case 4:
			state.high_wmark = count;
			break;
		case 5:
			state.boost = count;
			break;
		default:
			state.lowmem_reserve[s.index] = s.value;
		}
	}
	// Brings the zone close to its watermark, in its own count or in a snapshot, and close to
	// its drift mark, so that a small difference changes the answer.
	void balance(const step &s, bool by_snapshot)
	{
		zone_model &z = machine.zone[s.zone];
		z.state.free = machine.threshold(z, s.index, s.order) +
			       machine.unusable(z, s.order) + std::clamp(s.value, -2L, 2L);
		if (by_snapshot)
			z.state.free -= machine.pending(z);
		z.state.drift_mark = std::max(z.state.free, 0L) + (by_snapshot ? 1 : 0);
	}
	void run(const step &s)
	{
		static const std::array<const char *, 4> names{"Normal", "DMA32", "DMA", "DMA32x"};
		zone_model &z = machine.zone[s.zone];

		switch (s.what) {
		case action::number:
			set_number(z.state, s);
			break;
		case action::balance:
		case action::balance_of_snapshot:
			balance(s, s.what == action::balance_of_snapshot);
			break;
		case action::blocks:
			set_list(s.zone, s.order, s.index, s.value > 0 ? s.value % 3 : 0);
			break;
		case action::count:
			z.blocks[s.order] = s.value & 1;
			set_block_count(s.zone, s.order, z.blocks[s.order]);
			break;
		case action::diff:
			z.diffs[s.cpu] = static_cast<signed char>(s.value);
			set_free_pages_diff(s.zone, s.cpu, z.diffs[s.cpu]);
			break;
		case action::online:
			set_cpu_online(s.cpu, machine.online[s.cpu] = !machine.online[s.cpu]);
			break;
		case action::name:
			z.name = names[s.value & 3];
		}
		apply(s.zone);
	}
	void compare()
	{
		for (int index = -1; index <= zones; index++) {
			for (unsigned order = 0; order <= 11; order++) {
				const bool expected = machine.ok(index, order);
				if (zone_ok(static_cast<zone_type>(index), order) != expected)
					RC_FAIL(fmt::format("index {} order {}: expected {}", index,
							    order, expected));
				(expected ? passed : failed)++;
			}
		}
	}

	machine_model machine;
	unsigned long passed = 0;
	unsigned long failed = 0;
	bool (*zone_ok)(zone_type,
			unsigned) = exported<bool(zone_type, unsigned)>("tarn_zone_watermark_ok");
};

TEST_F(zone_watermark, agrees_with_the_rule)
{
	constexpr int steps = 120;

	EXPECT_TRUE(rc::check([&] {
		// Ranges grow with the size; use the full ranges from the start.
		const auto history = *rc::gen::resize(
			rc::kNominalSize, rc::gen::container<std::vector<step>>(steps, any_step()));
		begin_again();
		for (const step &s : history) {
			run(s);
			compare();
		}
	}));
	EXPECT_GE(passed + failed, 1000000U);
	EXPECT_GT(std::min(passed, failed), (passed + failed) / 10)
		<< "answers must not be one-sided";
}

TEST_F(zone_watermark, an_order_above_the_highest_always_fails)
{
	set_zone(1, {.free = 1L << 50});

	for (const unsigned order : {10U, 31U, 32U, 63U, 64U, -1U}) {
		EXPECT_FALSE(zone_ok(static_cast<zone_type>(1), order)) << order;
		EXPECT_TRUE(zone_ok(static_cast<zone_type>(0), order)) << order;
	}
}

TEST_F(zone_watermark, zone_of_allocation_flags)
{
	auto *const gfp_zone = exported<zone_type(gfp_t)>("tarn_gfp_zone");
	// DMA 1, HIGHMEM 2, DMA32 4, MOVABLE 8
	const std::vector<int> expected{1, 1, 1, 0, 0, 0, 0, 0, 1, 1, 2, 0, 0, 0, 0, 0};

	for (unsigned flags = 0; flags < expected.size(); flags++) {
		EXPECT_EQ(gfp_zone(flags), expected[flags]) << flags;
		EXPECT_EQ(gfp_zone(flags | 0xfffffff0U), expected[flags]) << flags;
	}
}

} // namespace
