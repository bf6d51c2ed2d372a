// SPDX-License-Identifier: GPL-2.0-only
// Keeps account of all objects of a recorded trace: who allocated them, along which stack, and when
// and how they were freed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tarnctl/ledger/lifetimes.h>
#include <tarnctl/ledger/series.h>
#include <tarnctl/ledger/verdict.h>
#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/event.h>
#include <tarnctl/trace/stacks.h>
#include <tarnctl/trace/u64_map.h>

namespace tarn::ledger
{

// The objects to look at; all conditions that are given must hold. Times are in ns from the first
// event. Names may be patterns as in a shell.
struct selection {
	std::string cache;
	std::vector<std::int32_t> pids;
	std::vector<std::string> comms;
	std::vector<std::string> functions; // any of them, anywhere in the allocating stack
	std::uint64_t from = 0;		    // allocated not before
	std::uint64_t to = UINT64_MAX;	    // nor after
	std::uint64_t min_age = 0;	    // at the moment that is shown
};

// The moment at which what is held is shown.
struct moment {
	enum class kind { end, peak, time } at = kind::end;
	std::uint64_t ns = 0; // of a time: from the first event
};

// Who allocates. Interrupts have no name and no pid: the task that they interrupt is not to blame.
struct task {
	std::string comm;
	std::int32_t pid = 0;
	std::uint64_t first_seen = 0;
	std::uint64_t exit = UINT64_MAX; // when it first frees in its own exit
};

// A cache, all events of the recording. Numbers are of objects but where bytes are named.
struct cache_account {
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;
	std::uint64_t unseen = 0; // freed without an event: their address was allocated again
	std::uint64_t live = 0;
	std::uint64_t live_bytes = 0;
	std::uint64_t peak = 0;
	std::uint64_t peak_bytes = 0;
	timeline bytes;
};

// The selected objects that one task allocated in one cache along one stack.
struct group {
	std::uint32_t cache = 0;
	std::uint32_t stack = 0;
	std::uint32_t task = 0;
	std::uint32_t holder = 0;
	bool selected = false;
	std::uint64_t allocated = 0;
	std::uint64_t freed = 0;
	std::uint64_t exit_freed = 0;
	std::uint64_t unseen = 0;
	std::uint64_t held = 0; // at the moment
	std::uint64_t held_bytes = 0;
	lifetimes lived = {};
};

// A kind of object in a task's hands, with the verdict on it.
struct holder {
	std::uint32_t cache = 0;
	std::uint32_t site = 0; // frame
	std::uint32_t task = 0;
	std::uint32_t kind = 0;
	bool pseudo = false;	 // of a socket, pipe or the like
	std::uint64_t first = 0; // allocation
	std::uint64_t live_now = 0;
	std::uint64_t bytes_now = 0;
	std::uint64_t exit_start = UINT64_MAX; // when the first object was freed in an exit
	holding facts = {};
	judgement verdict = {};
	floor_series floors = {};
	timeline counts = {};
};

struct trust {
	std::uint64_t without_stack = 0;
	std::uint64_t unmatched_frees = 0; // of objects from before the recording
	std::uint64_t unseen_frees = 0;
};

// Streams over the events; its memory grows with the objects that live at once and with the number
// of distinct (cache, stack, task). For one thread.
class ledger
{
public:
	// Points of the timelines.
	static constexpr std::size_t points = 256;

	// The index and the stacks are those of the trace, and outlive the ledger. The peak needs a
	// second ledger over the same events, which is given the event at which the first found it.
	ledger(const trace::cache_index &index, const trace::stack_table &stacks, selection wanted,
	       moment shown, std::uint64_t peak_event = 0);

	// The next event, in the order of the reader.
	void take(const trace::event &event);

	// After the last event: closes the account and judges.
	void finish();

	// By the numbers of the index.
	const std::vector<cache_account> &caches() const
	{
		return caches_;
	}
	const std::vector<group> &groups() const
	{
		return groups_;
	}
	const std::vector<holder> &holders() const
	{
		return holders_;
	}
	const task &task_of(std::uint32_t number) const
	{
		return tasks_[number];
	}
	const trust &losses() const
	{
		return losses_;
	}
	const trace::cache_index &index() const
	{
		return index_;
	}
	const trace::stack_table &stacks() const
	{
		return stacks_;
	}

	// Live bytes of the selected objects at the end of each part.
	const timeline &live() const
	{
		return live_;
	}
	// When a part of the timelines ends, in ns from the first event.
	std::uint64_t part_end(std::size_t part) const
	{
		return static_cast<std::uint64_t>(static_cast<unsigned __int128>(length_) *
						  (part + 1) / points);
	}
	std::uint64_t peak_bytes() const
	{
		return peak_bytes_;
	}
	std::uint64_t peak_time() const // ns from the first event
	{
		return peak_time_;
	}
	std::uint64_t peak_event() const
	{
		return peak_event_;
	}
	std::uint64_t end_bytes() const
	{
		return bytes_now_;
	}
	// Of the recording's slab events, in ns.
	std::uint64_t length() const
	{
		return length_;
	}

private:
	struct object {
		std::uint32_t group = trace::none; // none: this number is not in use
		std::uint32_t cache = 0;
		std::uint32_t bytes = 0;
		bool counted = false; // it is selected
		std::uint64_t time = 0;
	};
	struct kind {
		std::uint64_t freed = 0;
		std::uint64_t unseen = 0;
	};

	std::uint32_t find_task(const trace::event &event);
	std::uint32_t add_group(std::uint32_t cache, std::uint32_t stack, std::uint32_t task);
	bool is_selected(std::uint32_t cache, std::uint32_t stack, std::uint32_t task) const;
	void allocate(const trace::event &event);
	void end_object(object &gone);
	void free_seen(const trace::event &event);
	void free_unseen(std::uint32_t number);
	void move(object &moved, std::uint32_t cache);
	void note_exit(const trace::event &event, holder &h, const object &gone);
	void advance(std::uint64_t time);
	void take_picture();
	void judge_all();

	const trace::cache_index &index_;
	const trace::stack_table &stacks_;
	const selection wanted_;
	const moment shown_;
	const std::uint64_t peak_wanted_;
	std::uint64_t start_;  // ns, the first event
	std::uint64_t length_; // ns

	std::uint64_t now_ = 0; // ns from the first event; never goes back
	std::uint64_t number_ = 0;
	std::size_t part_ = 0;
	bool pictured_ = false;

	std::vector<cache_account> caches_;
	std::vector<task> tasks_;
	std::vector<group> groups_;
	std::vector<holder> holders_;
	std::vector<kind> kinds_;
	std::vector<object> objects_; // by the reader's numbers
	trace::u64_map task_of_pid_;  // the task that a pid had last
	trace::string_pool task_names_;
	trace::u64_map pairs_;	    // (cache, stack)
	trace::u64_map group_ids_;  // (pair, task)
	trace::u64_map kind_ids_;   // (cache, site, whether pseudo)
	trace::u64_map holder_ids_; // (kind, task)
	std::uint32_t pair_count_ = 0;

	timeline live_;
	std::uint64_t bytes_now_ = 0;
	std::uint64_t peak_bytes_ = 0;
	std::uint64_t peak_time_ = 0;
	std::uint64_t peak_event_ = 0;
	trust losses_;
};

} // namespace tarn::ledger
