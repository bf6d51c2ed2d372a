// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/frames.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

constexpr std::array allocator_prefixes = {
	"__traceiter_"sv, "trace_event_"sv, "__kmem_cache_"sv, "kmem_cache_"sv,
	"__kmalloc"sv,	  "kmalloc"sv,	    "kfree"sv,	       "__do_kmalloc"sv,
	"slab_alloc"sv,	  "__slab_alloc"sv, "___slab_alloc"sv,
};

// Where RCU calls back, or frees what kfree_rcu() collected.
constexpr std::array rcu_functions = {
	"rcu_do_batch"sv,	  "rcu_core"sv,
	"rcu_core_si"sv,	  "kfree_rcu_work"sv,
	"kvfree_rcu_bulk"sv,	  "kvfree_rcu_list"sv,
	"kfree_rcu_monitor"sv,	  "srcu_invoke_callbacks"sv,
	"rcu_tasks_invoke_cbs"sv,
};

// What the slab allocator, or a detector in it, keeps about slabs and objects.
constexpr std::array bookkeeping_functions = {
	"alloc_slab_obj_exts"sv, "memcg_alloc_page_obj_cgroups"sv,  "mem_pool_alloc"sv,
	"__link_object"sv,	 "alloc_tagging_slab_alloc_hook"sv,
};

// Directory entries and inodes of sockets, pipes and the like. They go when they are closed.
constexpr std::array pseudo_functions = {
	"d_alloc_pseudo"sv,
	"new_inode_pseudo"sv,
	"alloc_anon_inode"sv,
	"sock_alloc_inode"sv,
};

template <std::size_t count>
bool contains(const std::array<std::string_view, count> &names, std::string_view name)
{
	return std::ranges::find(names, name) != names.end();
}

// A compiler names its copies of a function name.isra.0 and the like.
std::string_view without_suffix(std::string_view function)
{
	return function.substr(0, function.find('.'));
}

frame_role role_of(std::string_view function)
{
	const std::string_view name = without_suffix(function);
	const auto starts_name = [&](std::string_view prefix) {
		return name.starts_with(prefix);
	};

	return {
		.allocator = std::ranges::any_of(allocator_prefixes, starts_name),
		.exit = name == "do_exit" || name == "make_task_dead",
		.exit_mm = name == "exit_mmap" || name == "__mmput",
		.rcu = contains(rcu_functions, name),
		.pseudo = contains(pseudo_functions, name),
		.bookkeeping = contains(bookkeeping_functions, name),
	};
}

bool parse_hex(std::string_view text, std::uint32_t &value)
{
	if (!text.starts_with("0x"))
		return false;
	const char *end = text.data() + text.size();
	const auto [at, error] = std::from_chars(text.data() + 2, end, value, 16);
	return error == std::errc{} && at == end;
}

// With the sym-addr option the address follows as <...>, and in trace-cmd's reports as (...). It
// is of no use on another kernel.
std::string_view without_address(std::string_view text)
{
	const bool angles = text.ends_with('>');

	if (!angles && !text.ends_with(')'))
		return text;
	const std::size_t open = text.rfind(angles ? " <" : " (");

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
		// A build id may follow the name.
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
		const std::string &function = frames_.emplace_back(parse_frame(text)).function;
		// trace-cmd writes an offset without the function's size.
		const std::string_view name =
			std::string_view(function).substr(0, function.find("+0x"));

		traits_.push_back({texts_[id], functions_.add(name), id, role_of(name)});
	}
	return id;
}

// Stacks come again and again: the frame behind the last one is mostly what it was before.
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
