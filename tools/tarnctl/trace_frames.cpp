// SPDX-License-Identifier: GPL-2.0-only
#include "trace_frames.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

constexpr std::array allocator_prefixes = {
	"__traceiter_"sv, "kmem_cache_"sv, "__kmalloc"sv, "kmalloc"sv, "kfree"sv,
};

bool is_allocator_function(std::string_view name)
{
	return std::any_of(allocator_prefixes.begin(), allocator_prefixes.end(),
			   [&](std::string_view prefix) { return name.starts_with(prefix); });
}

bool parse_hex(std::string_view text, std::uint32_t &value)
{
	if (!text.starts_with("0x"))
		return false;
	const char *end = text.data() + text.size();
	const auto [at, error] = std::from_chars(text.data() + 2, end, value, 16);
	return error == std::errc{} && at == end;
}

/* With the sym-addr option the address follows, which is of no use on another kernel. */
std::string_view without_address(std::string_view text)
{
	if (!text.ends_with('>'))
		return text;
	const std::size_t open = text.rfind(" <");
	return open != 0 && open != std::string_view::npos ? text.substr(0, open) : text;
}

} // namespace

frame parse_frame(std::string_view text)
{
	frame f;
	std::string_view place = text;
	const std::size_t open = text.rfind(" [");
	if (open != 0 && open != std::string_view::npos && text.ends_with(']')) {
		place = text.substr(0, open);
		/* A build id may follow the name. */
		const std::string_view module = text.substr(open + 2, text.size() - open - 3);
		f.module = module.substr(0, module.find(' '));
	}

	const std::size_t plus = place.rfind('+');
	const std::size_t slash = place.rfind('/');
	if (plus != 0 && plus != std::string_view::npos && slash != std::string_view::npos &&
	    slash > plus && parse_hex(place.substr(plus + 1, slash - plus - 1), f.offset) &&
	    parse_hex(place.substr(slash + 1), f.size) && f.size != 0) {
		f.function = place.substr(0, plus);
		return f;
	}
	f.offset = 0;
	f.size = 0;
	f.function = place;
	return f;
}

std::uint32_t frame_table::look_up(std::string_view text)
{
	const std::uint32_t id = texts_.add(text);
	if (id == frames_.size()) {
		const frame &f = frames_.emplace_back(parse_frame(text));
		traits_.push_back({texts_[id], functions_.add(f.function), id,
				   is_allocator_function(f.function)});
	}
	return id;
}

/* Stacks come again and again: the frame behind the last one is mostly what it was before. */
std::uint32_t frame_table::add(std::string_view text)
{
	const std::string_view known = without_address(text);
	if (!traits_.empty()) {
		const std::uint32_t guess = traits_[last_].next;
		if (traits_[guess].text == known)
			return last_ = guess;
	}
	const std::uint32_t id = look_up(known);
	traits_[last_].next = id;
	return last_ = id;
}

} // namespace tarn::trace
