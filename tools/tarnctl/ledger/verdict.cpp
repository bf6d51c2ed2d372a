// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/verdict.h>

#include <algorithm>
#include <numeric>

#include <fmt/format.h>

namespace tarn::ledger
{

namespace
{

// Fewer objects than this have no shape that one could judge.
constexpr std::uint64_t fewest_held = 12;
constexpr std::uint64_t fewest_by_exit = 24;

// A leak is spread over time: what lives rises in at least so many of sixteen slices, and by no
// more than half in one of them. A burst rises in one or two.
constexpr unsigned int fewest_slices = 5;
constexpr unsigned int fewest_late_slices = 3;

// A slice counts when it rises by this part of the whole rise.
constexpr std::uint64_t least_rise = 32;

// A program that grows and shrinks loses what it gained; a leak gives back a quarter at most.
constexpr std::uint64_t loss_part = 4;

// In the second half a leak adds at least this part of what it holds; a steady one adds half.
constexpr std::uint64_t late_part = 4;

// Of what a leak holds at the end at least this part is from the first half.
constexpr std::uint64_t old_part = 16;

// A life shorter than this is all start and end.
constexpr std::uint64_t shortest_life = 20000000;

// Where one free in ten goes unseen, objects that seem to live may be gone.
constexpr std::uint64_t unseen_part = 10;

constexpr double second = 1e9;

double share(std::uint64_t part, std::uint64_t whole)
{
	return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

struct growth {
	std::uint64_t up = 0;
	std::uint64_t down = 0;
	std::uint64_t largest = 0;
	unsigned int rising = 0;      // slices
	unsigned int rising_late = 0; // of them in the second half
};

// How the floor moves from slice to slice. What comes and goes within a slice does not show.
growth growth_of(const slice_floors &floors)
{
	growth g;

	for (std::size_t i = 1; i < floors.size(); i++) {
		const std::uint64_t rise =
			floors[i] > floors[i - 1] ? floors[i] - floors[i - 1] : 0;

		g.up += rise;
		g.down += floors[i] < floors[i - 1] ? floors[i - 1] - floors[i] : 0;
		g.largest = std::max(g.largest, rise);
	}
	for (std::size_t i = 1; i < floors.size(); i++) {
		if (floors[i] <= floors[i - 1] || (floors[i] - floors[i - 1]) * least_rise < g.up)
			continue;
		g.rising++;
		g.rising_late += i >= floors.size() / 2 ? 1 : 0;
	}
	return g;
}

bool is_steady(const growth &g)
{
	return g.rising >= fewest_slices && g.largest * 2 <= g.up && g.down * loss_part <= g.up;
}

bool grows_late(const slice_floors &floors, const growth &g)
{
	const std::uint64_t middle = floors[floors.size() / 2 - 1];

	return g.rising_late >= fewest_late_slices &&
	       floors.back() >= middle + floors.back() / late_part;
}

bool is_spread(const spread &s)
{
	return s.used() >= fewest_slices && s.largest() * 2 <= s.total();
}

std::string by_quarter(const slice_floors &floors)
{
	return fmt::format("{}, {}, {}, {}", floors[3], floors[7], floors[11], floors[15]);
}

// Why objects that seem to live may not.
std::string why_uncertain(const holding &h)
{
	if (h.bookkeeping)
		return "the allocator's own, which live as long as their slab";
	if (h.kind_freed == 0)
		return "no free of that kind was ever seen";
	if (h.kind_unseen * unseen_part > h.kind_freed + h.kind_unseen)
		return "many frees of that kind go unseen (in bulk, perhaps)";
	if (h.maybe_lost * 2 > h.live)
		return "their frees may be among the lost events";
	if (h.reclaimable)
		return "the kernel keeps these for reuse and gives them back when memory is short";
	return {};
}

// Whether most of what lives at the end lived a while before.
bool floors_hold(const holding &h)
{
	return std::uint64_t{h.floors.back()} * 2 >= h.live;
}

judgement judge_held(const holding &h)
{
	judgement result;

	if (h.live < fewest_held || !is_spread(h.ages))
		return result;
	const growth g = growth_of(h.floors);

	if (!is_steady(g) || !grows_late(h.floors, g) || h.old * old_part < h.live) {
		// As far as it was seen it grows, but that is not far enough.
		if (h.old == 0 && g.down * loss_part <= g.up && floors_hold(h)) {
			result.found = finding::uncertain;
			result.reason = "too young: all allocated in the second half";
		}
		return result;
	}
	result.reason = why_uncertain(h);
	if (!result.reason.empty()) {
		result.found = finding::uncertain;
		return result;
	}
	const double seconds = static_cast<double>(h.length) / 2 / second;

	result.found = finding::leaks;
	result.objects_per_second = (static_cast<double>(h.live) - h.floors[8]) / seconds;
	result.bytes_per_second = result.objects_per_second * static_cast<double>(h.live_bytes) /
				  static_cast<double>(h.live);
	result.reason =
		fmt::format("{} of {} allocated live at the end, {} of them since the first "
			    "half; at least {} lived as each quarter ended",
			    h.live, h.allocated, h.old, by_quarter(h.floors));
	return result;
}

judgement judge_exit(const holding &h)
{
	judgement result;

	if (!h.ended || h.most < fewest_by_exit || h.bookkeeping)
		return result;
	const growth g = growth_of(h.life_floors);

	// What RCU frees would go in the same way if the program had freed it before.
	if (h.deferred_freed * 2 >= h.freed && h.deferred_freed >= fewest_by_exit) {
		if (is_steady(g)) {
			result.found = finding::uncertain;
			result.reason = "freed through RCU: cannot tell what the exit alone freed";
		}
		return result;
	}
	if (!is_steady(g) || h.exit_freed < fewest_by_exit || h.exit_freed * 2 < h.allocated)
		return result;
	result.found = finding::uncertain;
	if (h.life < shortest_life) {
		result.reason = "the task lived too short to tell growth from a burst";
		return result;
	}
	if (h.address_space * 2 >= h.exit_freed) {
		result.reason = "part of the address space, which programs leave to their exit";
		return result;
	}
	const double seconds = static_cast<double>(h.life) / second;
	const double held_for =
		static_cast<double>(std::max<std::uint64_t>(1, h.holding_time)) / second;

	result.found = finding::keeps_till_exit;
	result.objects_per_second = static_cast<double>(h.exit_freed) / held_for;
	result.bytes_per_second = static_cast<double>(h.exit_bytes) / held_for;
	result.reason =
		fmt::format("{} of {} allocated ({:.0f} %) freed only by its exit; at least "
			    "{} lived as each quarter of its {:.3f} s ended",
			    h.exit_freed, h.allocated, share(h.exit_freed, h.allocated),
			    by_quarter(h.life_floors), seconds);
	return result;
}

} // namespace

void spread::add(std::uint64_t time, std::uint64_t from, std::uint64_t to)
{
	if (to <= from)
		return;
	const std::uint64_t at = std::clamp(time, from, to) - from;
	const auto slice = static_cast<std::uint64_t>(static_cast<double>(at) /
						      static_cast<double>(to - from) * slices);

	counts[std::min<std::uint64_t>(slice, slices - 1)]++;
}

unsigned int spread::used() const
{
	return slices - static_cast<unsigned int>(std::ranges::count(counts, 0U));
}

std::uint32_t spread::largest() const
{
	return *std::ranges::max_element(counts);
}

std::uint32_t spread::total() const
{
	return std::accumulate(counts.begin(), counts.end(), 0U);
}

judgement judge(const holding &h)
{
	judgement by_exit = judge_exit(h);

	if (by_exit.found == finding::keeps_till_exit)
		return by_exit;
	judgement held = judge_held(h);

	return held.found != finding::innocent ? held : by_exit;
}

} // namespace tarn::ledger
