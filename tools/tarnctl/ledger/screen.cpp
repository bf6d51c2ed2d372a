// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/screen.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <tarnctl/ledger/words.h>
#include <tarnctl/terminal/printable.h>

namespace tarn::ledger
{

namespace
{

constexpr std::size_t chart_columns = 48;
constexpr std::size_t cache_chart_columns = 24;

void merge(suspect &into, const suspect &s)
{
	into.allocated += s.allocated;
	into.freed += s.freed;
	into.objects += s.objects;
	into.bytes += s.bytes;
	into.objects_per_second += s.objects_per_second;
	into.bytes_per_second += s.bytes_per_second;
	into.counts.add(s.counts);
}

class screen
{
public:
	screen(const ledger &account, const moment &shown, const screen_options &options)
		: account_(account), shown_(shown), options_(options)
	{
	}

	std::string text();

private:
	void heading();
	void verdicts();
	struct origin {
		std::string name;
		std::uint64_t objects = 0;
		std::uint64_t allocated = 0;
		std::uint64_t heaviest = 0; // objects of the stack that has most
		std::uint32_t stack = 0;
	};

	void program(const std::vector<suspect> &all);
	void paths(const std::vector<suspect> &rows_of);
	std::vector<origin> origins(const suspect &row) const;
	void caches();
	void uncertain();
	void held();
	void next(const std::vector<suspect> &all);

	const std::string &cache_name(std::uint32_t cache) const
	{
		return account_.index().caches()[cache].name;
	}
	std::size_t rows(std::size_t usual) const
	{
		return options_.top != 0 ? options_.top : usual;
	}
	template <class... Arguments>
	void print(fmt::format_string<Arguments...> format, Arguments &&...arguments)
	{
		fmt::format_to(std::back_inserter(out_), format,
			       std::forward<Arguments>(arguments)...);
	}

	const ledger &account_;
	const moment &shown_;
	const screen_options &options_;
	fmt::memory_buffer out_;
};

void screen::heading()
{
	const trace::recording &facts = account_.index().facts();

	const trust &t = account_.losses();
	std::string remarks;

	if (t.without_stack != 0)
		remarks += fmt::format(" ({} without stack)", t.without_stack);
	remarks += facts.sound() ? ", none lost" : ", see above";
	print("{}{}, {} slab events{}\n", losses_text(account_), seconds_text(account_.length()),
	      facts.events, remarks);
	if (t.unmatched_frees + t.unseen_frees != 0)
		print("{} frees of objects from before the recording, {} frees unseen\n",
		      t.unmatched_frees, t.unseen_frees);
	print("Live: peak {} at {}, end {}\n", bytes_text(account_.peak_bytes()),
	      seconds_text(account_.peak_time()), bytes_text(account_.end_bytes()));
}

// One program with what it keeps, all its tasks together: a row a cache.
void screen::program(const std::vector<suspect> &all)
{
	const bool leaks = all.front().found == finding::leaks;
	std::vector<suspect> rows_of;
	std::vector<std::int32_t> pids;
	suspect sum;

	for (const suspect &s : all) {
		const auto same = std::ranges::find(rows_of, s.cache, &suspect::cache);

		merge(sum, s);
		if (same != rows_of.end())
			merge(*same, s);
		else
			rows_of.push_back(s);
		if (std::ranges::find(pids, s.pid) == pids.end())
			pids.push_back(s.pid);
	}
	const std::string &leading = cache_name(rows_of.front().cache);
	const std::string noun = rows_of.size() == 1 ? noun_of(leading) : "objects";

	print("\nSUSPECT  {}\n",
	      shortened(fmt::format("{} {}", program_name(all.front().comm), pids_text(pids)), 60));
	print("  {} {} {}{}, {}, {}\n", leaks ? "still holds" : "gave back", sum.objects, noun,
	      leaks ? " at the end" : " only by exiting", bytes_text(sum.bytes),
	      rate_text(sum.bytes_per_second));
	print("  {:<26}{:>10}{:>9}{:>13}{:>10}{:>10}\n", "", "allocated", "freed",
	      leaks ? "live at end" : "only by exit", leaks ? "memory" : "most held", "growth");
	for (std::size_t i = 0; i < rows_of.size() && i < rows(4); i++) {
		const suspect &s = rows_of[i];
		const std::uint64_t most = *std::ranges::max_element(s.counts.most()) *
					   account_.index().caches()[s.cache].object_size;

		print("  {:<26}{:>10}{:>9}{:>13}{:>10}{:>10}\n",
		      shortened(printable(cache_name(s.cache)), 26), s.allocated, s.freed,
		      s.objects, bytes_text(leaks ? s.bytes : most),
		      per_second_text(s.objects_per_second));
	}
	if (rows_of.size() > rows(4))
		print("  and {} caches more\n", rows_of.size() - rows(4));
	print("  {} live  {}  max {}\n", printable(leading),
	      chart(rows_of.front().counts.most(), chart_columns),
	      *std::ranges::max_element(rows_of.front().counts.most()));
	paths(rows_of);
}

// The call paths along which the program got what it keeps: those of its leading cache, and of the
// others what does not come from the same calls.
void screen::paths(const std::vector<suspect> &rows_of)
{
	std::vector<std::string> told;

	print("  WHERE  {} of allocated, call path\n",
	      rows_of.front().found == finding::leaks ? "live" : "only by exit");
	for (std::size_t i = 0; i < rows_of.size() && i < rows(4); i++) {
		std::size_t shown = 0;

		for (const origin &o : origins(rows_of[i])) {
			if (std::ranges::find(told, o.name) != told.end())
				continue;
			if (shown++ == rows(i == 0 ? 3 : 1))
				break;
			told.push_back(o.name);
			print("{:>8} of {:<6} {}  by {}\n", o.objects, o.allocated,
			      printable(cache_name(rows_of[i].cache)), printable(o.name));
			print("{}", wrapped(chain_of(account_.stacks(), o.stack), 10, 80));
		}
	}
}

// The calls that a program's objects of one cache come from, those of most objects first.
std::vector<screen::origin> screen::origins(const suspect &row) const
{
	std::map<std::string, origin> by_name;

	for (const group &g : account_.groups()) {
		const holder &h = account_.holders()[g.holder];
		const std::uint64_t kept = row.found == finding::leaks
						   ? g.allocated - g.freed - g.unseen
						   : g.exit_freed;

		if (g.cache != row.cache || h.verdict.found != row.found || kept == 0 ||
		    account_.task_of(g.task).comm != row.comm)
			continue;
		origin &o = by_name[origin_of(account_.stacks(), g.stack)];

		o.objects += kept;
		o.allocated += g.allocated;
		if (kept > o.heaviest) {
			o.heaviest = kept;
			o.stack = g.stack;
		}
	}
	std::vector<origin> ordered;

	for (auto &[name, o] : by_name) {
		o.name = name;
		ordered.push_back(o);
	}
	std::ranges::stable_sort(ordered, std::greater{}, &origin::objects);
	return ordered;
}

void screen::verdicts()
{
	std::map<std::pair<std::string, finding>, std::size_t> order;
	std::vector<std::vector<suspect>> programs;

	for (const suspect &s : suspects(account_)) {
		const auto [known, is_new] = order.try_emplace({s.comm, s.found}, programs.size());

		if (is_new)
			programs.emplace_back();
		programs[known->second].push_back(s);
	}
	if (programs.empty())
		print("\nNo leak found: no task keeps more and more of what it allocates.\n");
	for (std::size_t i = 0; i < programs.size() && i < rows(3); i++)
		program(programs[i]);
	for (std::size_t i = rows(3); i < programs.size(); i++)
		print("\nSUSPECT  {}, too\n", program_name(programs[i].front().comm));
}

void screen::caches()
{
	const std::vector<std::uint32_t> ranking = cache_ranking(account_, cache_order::peak);

	print("\nCACHES{:<26}{:>10}{:>10}\n", "", "own peak", "end");
	for (std::size_t i = 0; i < ranking.size() && i < rows(5); i++) {
		const cache_account &c = account_.caches()[ranking[i]];

		print("  {:<30}{:>10}{:>10}  {}\n", printable(cache_name(ranking[i])),
		      bytes_text(c.peak_bytes), bytes_text(c.live_bytes),
		      chart(c.bytes.most(), cache_chart_columns));
	}
}

void screen::uncertain()
{
	const std::vector<doubt> all = doubts(account_);

	for (std::size_t i = 0; i < all.size() && i < rows(4); i++) {
		const doubt &d = all[i];

		print("{}", wrapped(fmt::format("{}: {} live, {}, by {} of {}; {}",
						printable(cache_name(d.cache)), d.objects,
						bytes_text(d.bytes),
						account_.stacks().frames()[d.site].function,
						names_text(d.comms), d.reason),
				    11, 80, i == 0 ? "\nUNCERTAIN  " : "           "));
	}
	if (all.size() > rows(4))
		print("           and {} kinds more (--top {})\n", all.size() - rows(4),
		      all.size());
}

void screen::held()
{
	const std::vector<held_stack> stacks = held_stacks(account_, options_.order);

	print("\nHELD {}: {} stacks\n", moment_text(shown_, account_.peak_time()), stacks.size());
	for (std::size_t i = 0; i < stacks.size() && i < rows(20); i++) {
		const held_stack &s = stacks[i];

		print("\n{:>8} objects, {}  {}\n", s.objects, bytes_text(s.bytes),
		      printable(cache_name(s.cache)));
		print("{:>8} allocated, {} freed", s.allocated, s.freed);
		if (s.freed != 0)
			print(" after {} (90 % within {})", time_text(s.lived.quantile(0.5)),
			      time_text(s.lived.quantile(0.9)));
		print("\n");
		for (std::size_t t = 0; t < s.tasks.size() && t < 3; t++)
			print("{:>8} {}\n", s.tasks[t].objects,
			      task_name(s.tasks[t].comm, s.tasks[t].pid));
		if (s.tasks.size() > 3)
			print("{:>8} tasks more\n", s.tasks.size() - 3);
		std::size_t shown = 0;

		for (const std::uint32_t frame : account_.stacks()[s.stack]) {
			if (options_.frames != 0 && shown++ == options_.frames)
				break;
			print("            {}\n",
			      printable(account_.stacks().frames().text(frame)));
		}
	}
}

void screen::next(const std::vector<suspect> &all)
{
	const std::string trace = options_.trace.find(' ') == std::string::npos
					  ? options_.trace
					  : "'" + options_.trace + "'";

	print("\nNext: tarnctl hunt --trace {}", trace);
	if (options_.stacks)
		print(" --live-at peak --stacks\n");
	else if (!all.empty())
		print(" --stacks --cache {}\n      (or --pid {}, --live-at peak, --json)\n",
		      cache_name(all.front().cache), all.front().pid);
	else
		print(" --stacks\n      (or --live-at peak; tarnctl caches lists all caches)\n");
}

std::string screen::text()
{
	heading();
	verdicts();
	if (options_.stacks)
		held();
	else
		caches();
	uncertain();
	next(suspects(account_));
	return fmt::to_string(out_);
}

} // namespace

std::string screen_text(const ledger &account, const moment &shown, const screen_options &options)
{
	return screen(account, shown, options).text();
}

std::string caches_text(const ledger &account, cache_order order, std::size_t top)
{
	const std::vector<std::uint32_t> ranking = cache_ranking(account, order);
	std::string text = losses_text(account);

	text += fmt::format("{:<26}{:>7}{:>10}{:>10}{:>9}{:>9}{:>9}\n", "cache", "bytes",
			    "allocated", "freed", "live", "peak", "end");
	for (std::size_t i = 0; i < ranking.size() && (top == 0 || i < top); i++) {
		const trace::cache &known = account.index().caches()[ranking[i]];
		const cache_account &c = account.caches()[ranking[i]];

		text += fmt::format("{:<26}{:>7}{:>10}{:>10}{:>9}{:>9}{:>9}\n",
				    printable(known.name), known.object_size, c.allocated, c.freed,
				    c.live, bytes_text(c.peak_bytes), bytes_text(c.live_bytes));
	}
	return text;
}

std::string losses_text(const ledger &account)
{
	const trace::recording &f = account.index().facts();
	std::string text;

	if (f.lost != 0)
		text += fmt::format("LOST {} events while recording: counts are too low\n", f.lost);
	if (f.overwritten != 0)
		text += fmt::format("LOST {} entries of the start: the buffer was too small\n",
				    f.overwritten);
	if (f.damaged_lines != 0)
		text += fmt::format("DAMAGED {} line{} passed over, first at line {}{}{}\n",
				    f.damaged_lines, f.damaged_lines == 1 ? "" : "s",
				    f.first_damaged, f.broken.empty() ? "" : "; ", f.broken);
	if (f.stacks == 0)
		text += "NO STACKS: record with `echo 1 > options/stacktrace` to see call paths\n";
	if (f.frees == 0)
		text += "NO FREES: enable kmem_cache_free and kfree, too; all seems to live\n";
	if (f.allocations == 0)
		text += "NO ALLOCATIONS: enable kmem_cache_alloc and kmalloc, too\n";
	return text.empty() ? text : text + "\n";
}

} // namespace tarn::ledger
