// SPDX-License-Identifier: GPL-2.0-only
// Random histories of range changes, compared with a plain model of the kernel's page tables.
#include "fixture.h"

#include <array>
#include <optional>
#include <unordered_map>

#include <fmt/format.h>
#include <hosted/pgtable.h>
#include <mem_adapter.h>
#include <rapidcheck.h>

using namespace hosted;
using namespace module_tests;

namespace
{

constexpr u64 page = entry_span(3);
constexpr u64 mib2 = entry_span(2);
constexpr u64 gib = entry_span(1);
constexpr u64 page_kernel = 0x0068000000000703;
constexpr u64 not_global = 1ULL << 11;
constexpr u64 contiguous = 1ULL << 52;
constexpr u64 address = 0x0000fffffffff000;
// What stands for a table in the model.
constexpr u64 table = 3;

enum class action { change, boot };

struct step {
	action what;
	u64 phys;
	u64 virt;
	u64 size;
	u64 prot;	  // or the attributes of what boots
	int level;	  // of what boots
	unsigned failing; // page for a table; 0: none
};

std::ostream &operator<<(std::ostream &os, const step &s)
{
	return os << fmt::format("{{{} phys {:#x} virt {:#x} size {:#x} prot {:#x} level {} "
				 "failing {}}}\n",
				 s.what == action::boot ? "boot" : "change", s.phys, s.virt, s.size,
				 s.prot, s.level, s.failing);
}

// The physical address of a virtual one in the kernel's linear map.
constexpr u64 linear(u64 virt)
{
	return virt - lowest_kernel_address + 32 * gib;
}

u64 safe_changes(u64 old, u64 fresh)
{
	const u64 bits = 1ULL << 7 | not_global | 1ULL << 51 | 1ULL << 53;
	const bool both_normal = (old >> 2 & 7) < 2 && (fresh >> 2 & 7) < 2;
	return both_normal ? bits | 7 << 2 : bits;
}

bool safe(u64 old, u64 fresh)
{
	const bool loses_not_global = (old & not_global) != 0 && (fresh & not_global) == 0;
	return ((old | fresh) & contiguous) == 0 && !loses_not_global &&
	       (old | safe_changes(old, fresh)) == (fresh | safe_changes(old, fresh));
}

// A plain map from address to entry at each level. Missing entries are empty.
class model
{
public:
	u64 &at(u64 virt, int level)
	{
		const u64 number = virt >> (39 - 9 * level);
		return level == 1 ? root_[number % 512]
				  : tables_[level - 2][number / 512][number % 512];
	}
	// Returns false below a block.
	bool boot(const step &s)
	{
		for (int level = 1; level < s.level; level++)
			if (at(s.virt, level) != 0 && at(s.virt, level) != table)
				return false;
		for (int level = 1; level < s.level; level++)
			at(s.virt, level) = table;
		// Forget what was below.
		if (s.level == 1)
			tables_[0].erase(s.virt >> 30);
		if (s.level < 3)
			for (u64 at = s.virt; at - s.virt < entry_span(s.level); at += mib2)
				tables_[1].erase(at >> 21);
		at(s.virt, s.level) = s.prot == 0 ? 0 : s.phys | s.prot;
		return true;
	}
	// pages: how many tables can be allocated. Returns whether they were enough.
	bool change(const step &s, unsigned pages)
	{
		left_ = pages;
		return change(s, s.virt, s.virt + s.size, 1);
	}
	[[nodiscard]] std::optional<translation> translate(u64 virt)
	{
		int level = 1;
		while (level < 3 && at(virt, level) == table)
			level++;
		const u64 entry = at(virt, level);
		const u64 output = address & ~(entry_span(level) - 1);
		if ((entry & 3) != (level < 3 ? 1 : 3))
			return std::nullopt;
		return translation{(entry & output) + virt % entry_span(level),
				   entry & ~(output | 3), level};
	}
	[[nodiscard]] bool ensure_table(u64 virt, int level)
	{
		for (int above = 1; above < level; above++)
			if (at(virt, above) != table)
				return false;
		return at(virt, level) == table;
	}

	table_counts counts{};

private:
	bool change(const step &s, u64 begin, u64 end, int level)
	{
		for (u64 virt = begin; virt != end;) {
			const u64 span = entry_span(level);
			const u64 last = std::min((virt | (span - 1)), end - 1);
			const u64 phys = s.phys + (virt - s.virt);
			u64 &entry = at(virt, level);

			if (level == 3) {
				entry = (phys | s.prot) & ~contiguous;
				counts.barriers +=
					(entry & (1 | 1ULL << 6 | 1ULL << 54)) == (1 | 1ULL << 54);
			} else if ((virt | phys | (last + 1)) % span == 0 && (entry & 3) == 1) {
				const u64 fresh = phys | (s.prot & ~3ULL) | 1;
				if (safe(entry, fresh)) {
					entry = fresh;
					counts.barriers++;
				}
			} else if (!(entry == table || make_table(virt, level)) ||
				   !change(s, virt, last + 1, level + 1)) {
				return false;
			}
			virt = last + 1;
		}
		return true;
	}
	bool make_table(u64 virt, int level)
	{
		const u64 old = std::exchange(at(virt, level), table);
		if (left_-- == 0) {
			at(virt, level) = old;
			return false;
		}
		const u64 first = virt & ~(entry_span(level) - 1);
		const u64 span = entry_span(level + 1);
		for (u64 i = 0; i < 512; i++) {
			u64 &piece = at(first + i * span, level + 1);
			if (old == 0)
				piece = 0;
			else if (level == 1)
				piece = old + i * span;
			else
				piece = ((old & address & ~(mib2 - 1)) + i * span) | page_kernel |
					(arm64_use_ng_mappings ? not_global : 0);
		}
		counts.barriers += old == 0 ? 2 : 514;
		counts.flushes++;
		return true;
	}

	unsigned left_ = 0;
	using entries = std::array<u64, 512>;
	entries root_{};
	std::array<std::unordered_map<u64, entries>, 2>
		tables_; // keyed by the range that their entry maps
};

// Random choices, drawn from the bits of a number.
class dice
{
public:
	explicit dice(u64 number) : left_(number) {}

	// 0 to sides - 1
	u64 roll(u64 sides)
	{
		const u64 value = left_ % sides;
		left_ /= sides;
		return value;
	}
	u64 one_of(std::initializer_list<u64> values)
	{
		return std::data(values)[roll(values.size())];
	}

private:
	u64 left_;
};

u64 attributes_from(dice &d)
{
	u64 bits = d.one_of({page_kernel, page_kernel, page_kernel, page_kernel & ~3ULL});
	for (const unsigned bit : {7, 11, 51, 53})
		bits ^= d.roll(3) == 0 ? 1ULL << bit : 0;
	// Memory type, user access and contiguity.
	return bits ^
	       d.one_of({0, 0, 0, 0, 1ULL << 2, 1ULL << 2, 1ULL << 4, 1ULL << 6, contiguous});
}

// In the first or last three gigabytes, mostly at the edges of a gigabyte or of 2 MiB.
u64 start_from(dice &d)
{
	return lowest_kernel_address + d.one_of({0, 1, 2, 509, 510, 511}) * gib +
	       d.one_of({0, 0, 1, 2, 255, 510, 511}) * mib2 +
	       d.one_of({0, 0, 0, 1, 100, 510, 511}) * page;
}

step step_from(dice where, dice what)
{
	u64 virt = start_from(where);
	const u64 prot = attributes_from(what);
	if (where.roll(4) == 0) {
		const int level = static_cast<int>(where.one_of({1, 2, 2, 3}));
		const u64 first = virt & ~(entry_span(level) - 1);
		const u64 entry = level < 3 ? (prot & ~3ULL) | 1 : prot;
		const bool empty = level == 1 && where.roll(3) == 0;
		return {action::boot, linear(first), first, 0, empty ? 0 : entry, level, 0};
	}
	u64 size = where.one_of({page, page, page, page, 2 * page, 3 * page, 513 * page, mib2, mib2,
				 2 * mib2, 3 * mib2 + page});
	u64 moved = where.one_of({0, 0, 0, 0, 0, 0, gib, mib2, page, ~page + 1});
	if (where.roll(200) == 0) {
		size = where.one_of({gib, gib, gib + mib2, gib + page});
		moved = 0;
		virt &= where.roll(2) ? ~(gib - 1) : ~u64{0};
	}
	if (where.roll(40) == 0)
		(where.roll(2) ? size : moved) += 8;
	const auto failing = static_cast<unsigned>(where.one_of({0, 0, 0, where.roll(8)}));
	return {action::change, linear(virt) + moved, virt, size, prot, 3, failing};
}

rc::Gen<step> any_step()
{
	const auto number = rc::gen::inRange<u64>(0, ~u64{0});
	return rc::gen::map(rc::gen::pair(number, number), [](const std::pair<u64, u64> &from) {
		return step_from(dice(from.first), dice(from.second));
	});
}

class secpage_property : public module_test
{
protected:
	void boot(const step &s)
	{
		if (plain.boot(s))
			boot_map(s.virt, s.level, s.prot == 0 ? 0 : s.phys | s.prot);
	}
	void change(const step &s)
	{
		changes++;
		const u64 room = ~u64{0} - s.virt;
		const bool good = s.size != 0 && s.size - 1 <= room &&
				  ((s.phys | s.virt | s.size) % page) == 0;
		std::optional<fault_scope> fault;

		if (s.failing)
			fault.emplace("__get_free_pages", s.failing,
				      fault_scope::mode::from_then_on);
		forget_log();
		call({s.phys}, s.virt, s.size, {s.prot});
		const bool done = good && plain.change(s, s.failing ? s.failing - 1 : ~0U);
		RC_ASSERT(errors().empty() == (done || s.size == 0));
		RC_ASSERT(table_activity() == plain.counts);
		if (good)
			compare(s.virt, s.virt + s.size);
	}
	// Compares from 2 MiB before the range to 2 MiB after it: the pages at its ends, and some
	// in between.
	void compare(u64 begin, u64 end)
	{
		const auto look = [&](u64 virt) {
			if (translate(virt) != plain.translate(virt))
				RC_FAIL(fmt::format("at {:#x}", virt));
		};
		for (const u64 edge : {begin, end})
			for (u64 virt = edge - 2 * page; virt != edge + 2 * page; virt += page)
				look(virt | lowest_kernel_address);
		const u64 length = end - begin + 2 * mib2;
		for (u64 at = 0; at < length; at += 37 * page)
			look((begin - mib2 + at) | lowest_kernel_address);
	}
	void compare_all()
	{
		for (const u64 number : {0, 1, 2, 509, 510, 511}) {
			const u64 first = lowest_kernel_address + number * gib;
			for (u64 virt = first; virt - first < gib;) {
				const auto found = translate(virt);
				if (found != plain.translate(virt))
					RC_FAIL(fmt::format("at {:#x}", virt));
				const bool pages =
					plain.ensure_table(virt, 1) && plain.ensure_table(virt, 2);
				virt += pages ? page : mib2;
			}
		}
	}
	void begin_again()
	{
		flushes += plain.counts.flushes;
		reset_page_tables();
		plain = {};
	}

	decltype(tarn_change_secpage_range) *call =
		exported<decltype(tarn_change_secpage_range)>("tarn_change_secpage_range");
	model plain;
	unsigned long changes = 0;
	unsigned long flushes = 0; // one for each table made
};

TEST_F(secpage_property, module_and_model_agree)
{
	EXPECT_TRUE(rc::check([&] {
		begin_again();
		arm64_use_ng_mappings = *rc::gen::arbitrary<bool>();
		const auto history = *rc::gen::container<std::vector<step>>(1400, any_step());
		for (const step &s : history) {
			if (s.what == action::boot)
				boot(s);
			else
				change(s);
		}
		compare_all();
	}));
	begin_again();
	EXPECT_GE(changes, 100'000U);
	EXPECT_GE(flushes, changes / 4);
}

} // namespace
