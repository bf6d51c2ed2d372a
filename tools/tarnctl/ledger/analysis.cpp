// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/analysis.h>

#include <tarnctl/terminal/progress_bar.h>
#include <tarnctl/trace/reader.h>

namespace tarn::ledger
{

namespace
{

constexpr std::uint64_t events_per_report = 8192;

trace::cache_index read_index(const trace::trace_path &path)
{
	progress_bar bar("reading the trace");

	return trace::cache_index(
		path, [&bar](std::uint64_t done, std::uint64_t total) { bar.update(done, total); });
}

void fill(ledger &account, const trace::trace_path &path, analysis &a, const char *what)
{
	trace::reader reader(path, a.index, a.stacks);
	trace::event event;
	std::uint64_t events = 0;
	progress_bar bar(what);

	while (reader.next(event)) {
		account.take(event);
		if (++events % events_per_report == 0)
			bar.update(reader.input().position(), reader.input().size());
	}
	account.finish();
}

} // namespace

std::unique_ptr<analysis> analyse(const trace::trace_path &path, const selection &wanted,
				  const moment &shown)
{
	auto a = std::make_unique<analysis>(analysis{read_index(path), {}, nullptr});

	a->account = std::make_unique<ledger>(a->index, a->stacks, wanted, shown);
	fill(*a->account, path, *a, "following the objects");
	if (shown.at == moment::kind::peak) {
		const std::uint64_t peak = a->account->peak_event();

		a->account = std::make_unique<ledger>(a->index, a->stacks, wanted, shown, peak);
		fill(*a->account, path, *a, "going to the peak");
	}
	return a;
}

} // namespace tarn::ledger
