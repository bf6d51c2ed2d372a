// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/ledger.h>

#include <algorithm>
#include <fnmatch.h>
#include <utility>

namespace tarn::ledger
{

namespace
{

std::uint64_t pair_of(std::uint32_t a, std::uint32_t b)
{
	return std::uint64_t{a} << 32 | b;
}

bool matches_any(const std::vector<std::string> &patterns, const std::string &name)
{
	return std::ranges::any_of(patterns, [&name](const std::string &pattern) {
		return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
	});
}

// The number of the key, which is the next one if it is new.
std::uint32_t number_of(trace::u64_map &map, std::uint64_t key, std::size_t next)
{
	const std::uint32_t known = map.find(key);

	if (known != trace::none)
		return known;
	map.put(key, static_cast<std::uint32_t>(next));
	return static_cast<std::uint32_t>(next);
}

// The least in each slice of a stretch of time.
slice_floors floors_of(const floor_series &series, std::uint64_t from, std::uint64_t to)
{
	const std::uint64_t slice = (to - from) / spread::slices;
	slice_floors floors = {};

	for (std::size_t i = 0; i < floors.size(); i++)
		floors[i] = series.least(from + slice * i, from + slice * (i + 1));
	return floors;
}

} // namespace

ledger::ledger(const trace::cache_index &index, const trace::stack_table &stacks, selection wanted,
	       moment shown, std::uint64_t peak_event)
	: index_(index), stacks_(stacks), wanted_(std::move(wanted)), shown_(shown),
	  peak_wanted_(peak_event), start_(index.facts().first_time),
	  length_(index.facts().last_time - start_), caches_(index.caches().size())
{
}

// Only a change of name makes the longer way necessary.
std::uint32_t ledger::find_task(const trace::event &event)
{
	const std::string_view comm = event.in_interrupt ? std::string_view() : event.task();
	const std::int32_t pid = event.in_interrupt ? 0 : event.pid;
	const std::uint64_t key = event.in_interrupt ? UINT64_MAX : static_cast<std::uint64_t>(pid);
	const std::uint32_t known = task_of_pid_.find(key);

	if (known != trace::none && tasks_[known].comm == comm)
		return known;
	const std::uint32_t id = task_names_.add(std::string(comm) + '\0' + std::to_string(key));

	if (id == tasks_.size())
		tasks_.push_back({std::string(comm), pid, now_, UINT64_MAX});
	task_of_pid_.put(key, id);
	return id;
}

bool ledger::is_selected(std::uint32_t cache, std::uint32_t stack, std::uint32_t task) const
{
	const selection &w = wanted_;
	const trace::frame_table &frames = stacks_.frames();
	const auto is_wanted = [&](std::uint32_t frame) {
		return matches_any(w.functions, frames[frame].function);
	};

	return (w.cache.empty() || index_.caches()[cache].name == w.cache) &&
	       (w.pids.empty() || std::ranges::find(w.pids, tasks_[task].pid) != w.pids.end()) &&
	       (w.comms.empty() || matches_any(w.comms, tasks_[task].comm)) &&
	       (w.functions.empty() || std::ranges::any_of(stacks_[stack], is_wanted));
}

std::uint32_t ledger::add_group(std::uint32_t cache, std::uint32_t stack, std::uint32_t task)
{
	const std::uint32_t pair = number_of(pairs_, pair_of(cache, stack), pair_count_);

	pair_count_ = std::max(pair_count_, pair + 1);
	const std::uint32_t id = number_of(group_ids_, pair_of(pair, task), groups_.size());

	if (id != groups_.size())
		return id;
	const std::uint32_t site = stacks_[stack].front();
	const bool pseudo = stacks_.role(stack).pseudo;
	const std::uint32_t kind =
		number_of(kind_ids_, pair_of(cache, site * 2 + (pseudo ? 1 : 0)), kinds_.size());

	if (kind == kinds_.size())
		kinds_.emplace_back();

	const std::uint32_t holder = number_of(holder_ids_, pair_of(kind, task), holders_.size());

	if (holder == holders_.size())
		holders_.push_back({.cache = cache,
				    .site = site,
				    .task = task,
				    .kind = kind,
				    .pseudo = pseudo});
	groups_.push_back({.cache = cache,
			   .stack = stack,
			   .task = task,
			   .holder = holder,
			   .selected = is_selected(cache, stack, task)});
	return id;
}

// Parts of the timelines end, and the moment that is to be shown passes, between events.
void ledger::advance(std::uint64_t time)
{
	now_ = std::max(now_, time - std::min(time, start_));
	if (shown_.at == moment::kind::time && !pictured_ && now_ > shown_.ns)
		take_picture();
	while (part_ + 1 < points && now_ > part_end(part_))
		part_++;
}

void ledger::take(const trace::event &event)
{
	number_++;
	advance(event.time);
	if (!event.has_stack)
		losses_.without_stack++;
	if (event.displaced != trace::none)
		free_unseen(event.displaced);
	if (!trace::is_free(event.kind)) {
		if (event.object != trace::none)
			allocate(event);
	} else if (event.object != trace::none) {
		free_seen(event);
	} else if (event.ptr != 0) {
		losses_.unmatched_frees++;
	}
	live_.set(part_, bytes_now_);
	if (bytes_now_ > peak_bytes_) {
		peak_bytes_ = bytes_now_;
		peak_time_ = now_;
		peak_event_ = number_;
	}
	if (shown_.at == moment::kind::peak && number_ == peak_wanted_)
		take_picture();
}

void ledger::allocate(const trace::event &event)
{
	const std::uint32_t id = add_group(event.cache, event.stack, find_task(event));
	group &g = groups_[id];
	cache_account &c = caches_[event.cache];

	if (event.object >= objects_.size())
		objects_.resize(event.object + 1);

	object &o = objects_[event.object];

	o = {.group = id,
	     .cache = event.cache,
	     .bytes = event.bytes,
	     .counted = g.selected && now_ >= wanted_.from && now_ <= wanted_.to,
	     .time = now_};
	c.allocated++;
	c.live_bytes += o.bytes;
	c.peak = std::max(c.peak, ++c.live);
	c.peak_bytes = std::max(c.peak_bytes, c.live_bytes);
	c.bytes.set(part_, c.live_bytes);
	if (!o.counted)
		return;
	g.allocated++;
	bytes_now_ += o.bytes;

	holder &h = holders_[g.holder];

	if (h.facts.allocated++ == 0)
		h.first = now_;
	h.bytes_now += o.bytes;
	h.facts.most = std::max(h.facts.most, ++h.live_now);
	h.facts.most_bytes = std::max(h.facts.most_bytes, h.bytes_now);
	h.floors.set(now_, static_cast<std::uint32_t>(h.live_now));
	h.counts.set(part_, h.live_now);
}

// What every end of an object has in common.
void ledger::end_object(object &gone)
{
	cache_account &c = caches_[gone.cache];

	c.live--;
	c.live_bytes -= gone.bytes;
	c.bytes.set(part_, c.live_bytes);
	if (!gone.counted)
		return;
	bytes_now_ -= gone.bytes;

	holder &h = holders_[groups_[gone.group].holder];

	h.live_now--;
	h.bytes_now -= gone.bytes;
	h.floors.set(now_, static_cast<std::uint32_t>(h.live_now));
	h.counts.set(part_, h.live_now);
}

void ledger::free_unseen(std::uint32_t number)
{
	object gone = std::exchange(objects_[number], {});

	losses_.unseen_frees++;
	caches_[gone.cache].unseen++;
	groups_[gone.group].unseen += gone.counted ? 1 : 0;
	kinds_[holders_[groups_[gone.group].holder].kind].unseen++;
	end_object(gone);
}

// The allocation did not name the cache, and what its call site made it seem was wrong.
void ledger::move(object &moved, std::uint32_t cache)
{
	cache_account &from = caches_[std::exchange(moved.cache, cache)];
	cache_account &to = caches_[cache];

	from.allocated--;
	from.live--;
	from.live_bytes -= moved.bytes;
	to.allocated++;
	to.live_bytes += moved.bytes;
	to.peak = std::max(to.peak, ++to.live);
	to.peak_bytes = std::max(to.peak_bytes, to.live_bytes);

	const std::uint32_t old_group = moved.group;

	moved.group = add_group(cache, groups_[old_group].stack, groups_[old_group].task);
	if (!moved.counted)
		return;
	holder &left = holders_[groups_[old_group].holder];
	group &now = groups_[moved.group];
	holder &right = holders_[now.holder];

	groups_[old_group].allocated--;
	left.facts.allocated--;
	left.live_now--;
	left.bytes_now -= moved.bytes;
	if (right.facts.allocated++ == 0)
		right.first = moved.time;
	right.live_now++;
	right.bytes_now += moved.bytes;
	now.allocated++;
}

void ledger::free_seen(const trace::event &event)
{
	object gone = std::exchange(objects_[event.object], {});

	if (gone.cache != event.cache)
		move(gone, event.cache);
	group &g = groups_[gone.group];
	holder &h = holders_[g.holder];
	const trace::frame_role &role = stacks_.role(event.stack);

	caches_[gone.cache].freed++;
	kinds_[h.kind].freed++;
	if (role.exit && !event.in_interrupt) {
		task &ending = tasks_[find_task(event)];

		ending.exit = std::min(ending.exit, now_);
	}
	if (gone.counted) {
		g.freed++;
		g.lived.add(now_ - gone.time);
		h.facts.freed++;
		if (event.in_interrupt || role.rcu)
			h.facts.deferred_freed++;
		else if (role.exit)
			note_exit(event, h, gone);
		if (role.exit)
			g.exit_freed++;
	}
	end_object(gone);
}

void ledger::note_exit(const trace::event &event, holder &h, const object &gone)
{
	h.exit_start = std::min(h.exit_start, now_);
	h.facts.exit_freed++;
	h.facts.exit_bytes += gone.bytes;
	h.facts.address_space += stacks_.role(event.stack).exit_mm ? 1 : 0;
}

void ledger::take_picture()
{
	const std::uint64_t then = shown_.at == moment::kind::time  ? shown_.ns
				   : shown_.at == moment::kind::end ? length_
								    : now_;

	pictured_ = true;
	for (const object &o : objects_) {
		if (o.group == trace::none || !o.counted || then - o.time < wanted_.min_age)
			continue;
		groups_[o.group].held++;
		groups_[o.group].held_bytes += o.bytes;
	}
}

void ledger::judge_all()
{
	for (const object &o : objects_) {
		if (o.group == trace::none || !o.counted)
			continue;
		holder &h = holders_[groups_[o.group].holder];

		h.facts.old += o.time * 2 < length_ ? 1 : 0;
		h.facts.ages.add(o.time, h.first, length_);
	}
	const trace::recording &facts = index_.facts();
	const double lost = static_cast<double>(facts.lost) / static_cast<double>(facts.events);

	for (holder &h : holders_) {
		holding &f = h.facts;
		const task &t = tasks_[h.task];
		const std::uint64_t end = std::min(t.exit, h.exit_start);
		const bool ended = !t.comm.empty() && end != UINT64_MAX;

		f.live = h.live_now;
		f.live_bytes = h.bytes_now;
		f.length = length_;
		f.ended = ended;
		f.life = ended ? end - std::min(end, t.first_seen) : 0;
		f.kind_freed = kinds_[h.kind].freed;
		f.kind_unseen = kinds_[h.kind].unseen;
		f.reclaimable = index_.caches()[h.cache].reclaimable && !h.pseudo;
		f.maybe_lost = static_cast<std::uint64_t>(lost * static_cast<double>(f.allocated));
		f.bookkeeping = stacks_.frames().role(h.site).bookkeeping;
		f.holding_time = ended ? end - std::min(end, h.first) : 0;
		f.floors = floors_of(h.floors, 0, length_);
		// The very end is left out: the exit has begun there.
		if (ended)
			f.life_floors = floors_of(h.floors, t.first_seen, end - f.life / 32);
		h.verdict = judge(f);
	}
}

void ledger::finish()
{
	now_ = length_;
	part_ = points - 1;
	if (!pictured_)
		take_picture();
	live_.extend(points);
	for (cache_account &c : caches_)
		c.bytes.extend(points);
	judge_all();
}

} // namespace tarn::ledger
