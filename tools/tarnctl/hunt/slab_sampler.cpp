// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/slab_sampler.h>

#include <algorithm>
#include <cerrno>
#include <concepts>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include <tarnctl/device/device_error.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

// A chart and a JSON array need no more.
constexpr std::size_t most_points = 512;

// Takes the last word off the text, if that is a number.
template <std::integral number>
bool take_last_number(std::string_view &text, number &value)
{
	text = text.substr(0, text.find_last_not_of(' ') + 1);
	const std::size_t start = text.find_last_of(' ') + 1;
	const std::optional<number> found = parse_number<number>(text.substr(start));

	if (!found)
		return false;
	value = *found;
	text.remove_suffix(text.size() - start);
	return true;
}

// "filp  300 315 192 21 1 : tunables ...": a name may contain spaces, so the numbers are taken from
// behind.
std::optional<slabinfo_line> parse_line(std::string_view line)
{
	slabinfo_line result;
	std::uint64_t per_slab = 0;
	std::uint64_t pages = 0;

	line = line.substr(0, line.find(" :"));
	if (line.starts_with('#') || !take_last_number(line, pages) ||
	    !take_last_number(line, per_slab) || !take_last_number(line, result.object_size) ||
	    !take_last_number(line, result.room) || !take_last_number(line, result.live))
		return std::nullopt;
	result.name = line.substr(0, line.find_last_not_of(' ') + 1);
	if (result.name.empty())
		return std::nullopt;
	return result;
}

std::string reason_of(int error)
{
	if (error == EACCES || error == EPERM)
		return "only root may read it";
	if (error == ENOENT)
		return "the kernel lacks it: CONFIG_SLUB_DEBUG";
	return errno_message(error);
}

double seconds_of(std::chrono::nanoseconds time)
{
	return std::chrono::duration<double>(time).count();
}

} // namespace

std::vector<slabinfo_line> parse_slabinfo(std::string_view text)
{
	std::vector<slabinfo_line> lines;

	while (!text.empty()) {
		const std::size_t end = std::min(text.find('\n'), text.size());

		if (auto parsed = parse_line(text.substr(0, end)))
			lines.push_back(std::move(*parsed));
		text.remove_prefix(std::min(end + 1, text.size()));
	}
	return lines;
}

slab_sampler::slab_sampler(std::string root) : root_(std::move(root)) {}

void slab_sampler::sample(std::chrono::nanoseconds now)
{
	if (!fault_.empty())
		return;
	const std::string path = root_ + "/proc/slabinfo";

	errno = 0;
	if (!file_.is_open())
		file_.open(path);
	file_.clear();
	file_.seekg(0);
	const std::string text{std::istreambuf_iterator<char>(file_), {}};
	const std::vector<slabinfo_line> lines = parse_slabinfo(text);

	if (lines.empty()) {
		fault_ = fmt::format("no figures from /proc/slabinfo: {}",
				     errno == 0 ? "it lists no cache" : reason_of(errno));
		return;
	}
	// The last reading stays only until a later one comes, unless its turn had come.
	if (last_is_extra_) {
		times_.pop_back();
		for (sampled_cache &cache : caches_)
			cache.points.pop_back();
	}
	last_is_extra_ = readings_++ % stride_ != 0;
	times_.push_back(now);
	for (sampled_cache &cache : caches_)
		cache.points.emplace_back();
	for (const slabinfo_line &line : lines) {
		sampled_cache &cache = entry(line);
		slab_point &point = cache.points.back();

		// Two caches may have one name.
		point.live += line.live;
		point.room += line.room;
		if (point.live > cache.peak) {
			cache.peak = point.live;
			cache.peak_time = now;
		}
	}
	if (times_.size() > most_points)
		thin();
}

sampled_cache &slab_sampler::entry(const slabinfo_line &line)
{
	const auto [at, is_new] = by_name_.try_emplace(line.name, caches_.size());

	if (!is_new)
		return caches_[at->second];
	sampled_cache cache;
	std::ifstream file(root_ + "/sys/kernel/slab/" + line.name + "/reclaim_account");
	int reclaimable = 0;

	cache.name = line.name;
	cache.object_size = line.object_size;
	if (file >> reclaimable)
		cache.reclaimable = reclaimable != 0;
	// It was not there before.
	cache.points.resize(times_.size());
	return caches_.emplace_back(std::move(cache));
}

// Drops every second point.
void slab_sampler::thin()
{
	const auto halve = [](auto &list) {
		std::size_t kept = 0;

		for (std::size_t i = 0; i < list.size(); i += 2)
			list[kept++] = list[i];
		list.resize(kept);
	};

	halve(times_);
	for (sampled_cache &cache : caches_)
		halve(cache.points);
	stride_ *= 2;
}

// The name of a cache that may be merged is a link to a directory that merged caches share.
std::vector<std::string> slab_sampler::merged_with(const std::string &cache) const
{
	namespace fs = std::filesystem;
	const fs::path directory = root_ + "/sys/kernel/slab";
	std::vector<std::string> names;
	std::error_code error;
	const fs::path shared = fs::read_symlink(directory / cache, error);

	if (error)
		return names;
	for (const fs::directory_entry &entry : fs::directory_iterator(directory, error)) {
		const std::string name = entry.path().filename();

		if (name != cache && entry.is_symlink(error) &&
		    fs::read_symlink(entry.path(), error) == shared)
			names.push_back(name);
	}
	std::ranges::sort(names);
	return names;
}

const sampled_cache *slab_sampler::find(const std::string &name) const
{
	const auto at = by_name_.find(name);

	return at == by_name_.end() ? nullptr : &caches_[at->second];
}

double growth_per_second(const slab_sampler &slabs, const sampled_cache &cache, time_span when)
{
	const auto quarter = (when.to - when.from) / 4;
	std::optional<std::uint64_t> first;
	std::optional<std::uint64_t> last;

	for (std::size_t i = 0; i < slabs.times().size(); i++) {
		const std::chrono::nanoseconds time = slabs.times()[i];
		const std::uint64_t live = cache.points[i].live;

		if (time >= when.from && time <= when.from + quarter)
			first = std::min(first.value_or(live), live);
		else if (time >= when.to - quarter && time <= when.to)
			last = std::min(last.value_or(live), live);
	}
	if (!first || !last)
		return 0;
	return (static_cast<double>(*last) - static_cast<double>(*first)) / seconds_of(quarter * 3);
}

bool is_bookkeeping(const sampled_cache &cache)
{
	return cache.name == "slub_track_cache" || cache.name.starts_with("kmemleak_");
}

const sampled_cache *fastest_growing(const slab_sampler &slabs, time_span when)
{
	const sampled_cache *found = nullptr;
	double fastest = 0;

	for (const sampled_cache &cache : slabs.caches()) {
		const double growth = growth_per_second(slabs, cache, when) * cache.object_size;

		// A cache of which nobody says that it cannot be shrunk may be one that can.
		if (growth <= fastest || is_bookkeeping(cache) || cache.reclaimable.value_or(true))
			continue;
		fastest = growth;
		found = &cache;
	}
	return found;
}

} // namespace tarn
