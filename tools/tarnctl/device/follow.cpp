// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/follow.h>

#include <algorithm>

namespace tarn
{

follow_run::follow_run(const follow_limits &limits) : count_(limits.count)
{
	if (limits.time)
		deadline_ = clock::now() + *limits.time;
}

follow_event follow_run::wait(int file, std::optional<milliseconds> silence)
{
	constexpr milliseconds forever{-1};
	milliseconds patience = silence.value_or(forever);
	bool readable = false;

	if (deadline_) {
		const auto left = std::chrono::ceil<milliseconds>(*deadline_ - clock::now());

		if (left <= milliseconds::zero())
			return follow_event::time_over;
		patience = silence ? std::min(*silence, left) : left;
	}
	if (signals_.wait(patience, file, readable))
		return follow_event::signal;
	if (readable)
		return follow_event::readable;
	return deadline_ && clock::now() >= *deadline_ ? follow_event::time_over
						       : follow_event::silence;
}

} // namespace tarn
