// SPDX-License-Identifier: GPL-2.0-only
#include "progress_bar.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace tarn
{

namespace
{

// Work that is done before this needs no bar.
constexpr std::chrono::milliseconds patience{300};
constexpr std::chrono::milliseconds redraw{100};
constexpr std::uint64_t width = 40;

} // namespace

progress_bar::progress_bar(std::string what)
	: what_(std::move(what)), terminal_(isatty(STDERR_FILENO) == 1),
	  next_(clock::now() + patience)
{
}

progress_bar::~progress_bar()
{
	if (shown_)
		fmt::print(stderr, "\r\033[K");
}

void progress_bar::update(std::uint64_t done, std::uint64_t total)
{
	if (!terminal_ || total == 0 || clock::now() < next_)
		return;
	const std::uint64_t filled = std::min(width, done * width / total);

	next_ = clock::now() + redraw;
	shown_ = true;
	fmt::print(stderr, "\r{} [{:#<{}}{:{}}] {:3} %", what_, "", filled, "", width - filled,
		   std::min<std::uint64_t>(100, done * 100 / total));
	std::fflush(stderr);
}

} // namespace tarn
