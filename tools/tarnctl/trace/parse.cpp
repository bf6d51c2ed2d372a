// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/caches.h>
#include <tarnctl/trace/parse.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

struct named_op {
	std::string_view name;
	op kind;
};

// Older kernels have events of their own for allocations on a node.
constexpr std::array op_names = {
	named_op{"kmem_cache_alloc"sv, op::kmem_cache_alloc},
	named_op{"kmem_cache_free"sv, op::kmem_cache_free},
	named_op{"kmalloc"sv, op::kmalloc},
	named_op{"kfree"sv, op::kfree},
	named_op{"kmem_cache_alloc_node"sv, op::kmem_cache_alloc},
	named_op{"kmalloc_node"sv, op::kmalloc},
};

constexpr std::size_t comm_limit = 15;

// The kernel aligns names to the right in this many columns.
constexpr std::size_t comm_columns = 16;
constexpr std::size_t name_limit = 512; // of a symbol with its place, or of a cache

// More than any kernel can be built for; keeps a damaged number from making tables huge.
constexpr std::uint64_t cpu_limit = 8192;

constexpr bool is_digit(char c)
{
	return c >= '0' && c <= '9';
}

template <typename number>
bool parse_number(std::string_view text, number &value, int base)
{
	const char *end = text.data() + text.size();
	const auto [at, error] = std::from_chars(text.data(), end, value, base);
	return error == std::errc{} && at == end;
}

class cursor
{
public:
	explicit cursor(std::string_view text) : at_(text.data()), end_(text.data() + text.size())
	{
	}

	bool eat(char c)
	{
		if (at_ == end_ || *at_ != c)
			return false;
		at_++;
		return true;
	}

	bool eat_spaces()
	{
		const char *start = at_;
		while (at_ != end_ && *at_ == ' ')
			at_++;
		return at_ != start;
	}

	bool eat_number(std::uint64_t limit, std::uint64_t &value)
	{
		const char *start = at_;
		value = 0;
		for (; at_ != end_ && is_digit(*at_) && value <= limit; at_++)
			value = value * 10 + static_cast<std::uint64_t>(*at_ - '0');
		return at_ != start && value <= limit;
	}

	// `seconds.fraction` to ns. Some clocks count without a fraction: those are kept as they
	// are.
	bool eat_time(std::uint64_t &ns)
	{
		constexpr std::uint64_t second = 1000000000;

		if (!eat_number(UINT64_MAX / second - 1, ns))
			return false;
		if (!eat('.'))
			return true;
		ns *= second;

		const char *start = at_;

		for (std::uint64_t unit = second / 10; at_ != end_ && is_digit(*at_);
		     at_++, unit /= 10)
			ns += unit * static_cast<std::uint64_t>(*at_ - '0');
		return at_ != start;
	}

	std::string_view eat_word()
	{
		const std::string_view word = rest().substr(0, rest().find(' '));
		at_ += word.size();
		return word;
	}

	// The process the thread belongs to, which the record-tgid option adds.
	bool eat_tgid()
	{
		if (!eat('('))
			return true;
		while (at_ != end_ && (*at_ == ' ' || *at_ == '-' || is_digit(*at_)))
			at_++;
		return eat(')') && eat_spaces();
	}

	bool at_digit() const
	{
		return at_ != end_ && is_digit(*at_);
	}

	std::string_view rest() const
	{
		return {at_, static_cast<std::size_t>(end_ - at_)};
	}

private:
	const char *at_;
	const char *end_;
};

// The third of the flags is the context: hardirq, softirq, NMI and their combinations. The column
// is absent with the irq-info option off; it never starts with a digit, as the time does.
bool parse_flags(cursor &c, bool &in_interrupt)
{
	in_interrupt = false;
	if (c.at_digit())
		return true;
	const std::string_view flags = c.eat_word();
	if (flags.size() < 4 || flags.size() > 8)
		return false;
	in_interrupt = "hHszZ"sv.find(flags[2]) != std::string_view::npos;
	return c.eat_spaces();
}

// `PID [CPU] flags TIME: `, which follows the dash behind the name.
bool parse_tail(std::string_view text, parsed_line &out, std::string_view &body)
{
	cursor c(text);
	std::uint64_t pid = 0;
	std::uint64_t cpu = 0;
	if (!c.eat_number(std::numeric_limits<std::int32_t>::max(), pid) || !c.eat_spaces() ||
	    !c.eat_tgid() || !c.eat('[') || !c.eat_number(cpu_limit - 1, cpu) || !c.eat(']') ||
	    !c.eat_spaces() || !parse_flags(c, out.in_interrupt))
		return false;
	if (!c.eat_time(out.time) || !c.eat(':') || !c.eat(' '))
		return false;
	out.pid = static_cast<std::int32_t>(pid);
	out.cpu = static_cast<std::uint16_t>(cpu);
	body = c.rest();
	return true;
}

// A name may itself have dashes and look like anything, so the column decides. Text that lost its
// alignment is searched for the first dash that the rest of a header follows.
bool parse_header(std::string_view line, parsed_line &out, std::string_view &body)
{
	std::size_t dash = comm_columns;
	if (line.size() <= dash || line[dash] != '-' ||
	    !parse_tail(line.substr(dash + 1), out, body)) {
		dash = line.find('-');
		while (dash != std::string_view::npos &&
		       !parse_tail(line.substr(dash + 1), out, body))
			dash = line.find('-', dash + 1);
		if (dash == std::string_view::npos)
			return false;
	}
	std::string_view comm = line.substr(0, dash);
	comm.remove_prefix(std::min(comm.find_first_not_of(' '), comm.size()));
	out.comm = comm.substr(0, comm_limit);
	return true;
}

// The kernel pads pointers with zeros to their full width. Zeros in front of fewer digits are a
// line that was cut, which would name another object.
bool parse_pointer(std::string_view text, std::uint64_t &ptr)
{
	if (text == "(null)") {
		ptr = 0;
		return true;
	}
	if (text.starts_with("0x"))
		return parse_number(text.substr(2), ptr, 16);
	if (text.size() > 1 && text.front() == '0' && text.size() != 8 && text.size() != 16)
		return false;
	return parse_number(text, ptr, 16);
}

struct slab_fields {
	std::string_view call_site;
	std::string_view ptr;
	std::string_view name;
	std::string_view bytes_alloc;
	std::string_view gfp_flags;
	std::string_view unused;

	// The first letter tells nearly enough; this is called for every word of every event.
	std::string_view &operator[](std::string_view key)
	{
		switch (key.front()) {
		case 'c':
			return key == "call_site" ? call_site : unused;
		case 'p':
			return key == "ptr" ? ptr : unused;
		case 'n':
			return key == "name" ? name : unused;
		case 'b':
			return key == "bytes_alloc" ? bytes_alloc : unused;
		case 'g':
			return key == "gfp_flags" ? gfp_flags : unused;
		default:
			return unused;
		}
	}
};

// `key=value` words; a word without `=` continues a value with spaces, such as `foo+0x1/0x2 [mod]`.
bool parse_fields(std::string_view text, slab_fields &fields)
{
	cursor c(text);
	std::string_view *last = nullptr;
	for (c.eat_spaces(); !c.rest().empty(); c.eat_spaces()) {
		const std::string_view word = c.eat_word();
		const std::size_t equals = word.find('=');
		if (equals != std::string_view::npos) {
			if (equals == 0 || equals + 1 == word.size())
				return false;
			last = &fields[word.substr(0, equals)];
			*last = word.substr(equals + 1);
		} else if (last == &fields.call_site || last == &fields.name) {
			const char *end = word.data() + word.size();
			*last = {last->data(), static_cast<std::size_t>(end - last->data())};
		} else {
			return false;
		}
	}
	return true;
}

// The kernel's names are short, and C strings.
bool is_name(std::string_view text)
{
	return text.size() <= name_limit && text.find('\0') == std::string_view::npos;
}

// The fields in front of gfp_flags are whole if that one is there. Kernels before 5.13 do not name
// the cache of a free.
bool parse_slab(std::string_view text, parsed_line &out)
{
	slab_fields fields;

	if (!parse_fields(text, fields) || fields.call_site.empty() || !is_name(fields.call_site) ||
	    !is_name(fields.name) || !parse_pointer(fields.ptr, out.ptr)) {
		out.hidden_pointer = fields.ptr == "(____ptrval____)";
		return false;
	}
	out.call_site = fields.call_site;
	out.cache = fields.name;
	out.bytes = 0;
	return is_free(out.kind) ||
	       (!fields.gfp_flags.empty() && parse_number(fields.bytes_alloc, out.bytes, 10) &&
		out.bytes <= max_object_bytes);
}

const named_op *find_op(std::string_view name)
{
	const auto *found = std::ranges::find(op_names, name, &named_op::name);

	return found != op_names.end() ? found : nullptr;
}

line_kind parse_event(std::string_view body, parsed_line &out)
{
	if (body == "<stack trace>")
		return line_kind::stack_header;
	if (body == "<user stack trace>")
		return line_kind::user_stack_header;
	const std::string_view name = body.substr(0, body.find(':'));

	// trace-cmd writes stacks as an event.
	if (name == "kernel_stack" && body.find("<stack trace") != std::string_view::npos)
		return line_kind::stack_header;
	if (name == "user_stack" && body.find("<user stack trace") != std::string_view::npos)
		return line_kind::user_stack_header;
	const named_op *found = find_op(name);

	if (!found || name.size() == body.size())
		return line_kind::other_event;
	out.kind = found->kind;
	out.has_header = true;
	out.hidden_pointer = false;
	return parse_slab(body.substr(name.size() + 1), out) ? line_kind::slab_event
							     : line_kind::malformed;
}

// Whether a line without a proper header has a slab event all the same, so that it is damaged.
bool has_slab_event(std::string_view line)
{
	const std::size_t colon = line.find(": call_site=");

	if (colon == std::string_view::npos)
		return false;
	const std::string_view front = line.substr(0, colon);

	return find_op(front.substr(front.rfind(' ') + 1)) != nullptr;
}

// `CPU:1 [LOST 5 EVENTS]` or `CPU:1 [LOST EVENTS]`; trace-cmd writes `CPU:1 [5 EVENTS DROPPED]`.
bool parse_lost(std::string_view line, parsed_line &out)
{
	constexpr std::string_view mark = "CPU:";
	std::uint64_t cpu = 0;

	if (!line.starts_with(mark) || line.find("EVENTS") == std::string_view::npos)
		return false;
	cursor c(line.substr(mark.size()));

	if (!c.eat_number(cpu_limit - 1, cpu) || !c.eat_spaces() || !c.eat('['))
		return false;
	if (c.rest().starts_with("LOST")) {
		c.eat_word();
		c.eat_spaces();
	} else if (!c.at_digit() && !c.rest().starts_with("EVENTS DROPPED")) {
		return false;
	}
	out.cpu = static_cast<std::uint16_t>(cpu);
	if (!c.eat_number(UINT32_MAX, out.lost))
		out.lost = 1;
	return true;
}

// `# entries-in-buffer/entries-written: 5/9   #P:2`
bool parse_buffer_counts(std::string_view line, parsed_line &out)
{
	constexpr std::string_view mark = "# entries-in-buffer/entries-written: ";
	std::uint64_t kept = 0;
	std::uint64_t written = 0;

	if (!line.starts_with(mark))
		return false;
	cursor c(line.substr(mark.size()));

	if (!c.eat_number(UINT64_MAX / 16, kept) || !c.eat('/') ||
	    !c.eat_number(UINT64_MAX / 16, written))
		return false;
	out.lost = written > kept ? written - kept : 0;
	return true;
}

bool parse_frame_line(std::string_view line, std::string_view &frame)
{
	// The kernel indents frames, trace-cmd does not.
	const std::string_view mark = line.starts_with(' ') ? " => " : "=> ";

	if (!line.starts_with(mark))
		return false;
	frame = line.substr(mark.size());
	frame.remove_prefix(std::min(frame.find_first_not_of(' '), frame.size()));
	frame = frame.substr(0, name_limit);
	return true;
}

} // namespace

line_kind parse_line(std::string_view line, parsed_line &out)
{
	std::string_view body;
	if (parse_frame_line(line, out.frame)) {
		// A task may have a name that looks like a frame.
		const bool is_event = line.size() > comm_columns && line[comm_columns] == '-' &&
				      parse_header(line, out, body);
		return is_event ? parse_event(body, out) : line_kind::stack_frame;
	}
	if (line.starts_with('#'))
		return parse_buffer_counts(line, out) ? line_kind::buffer_counts : line_kind::other;
	if (parse_header(line, out, body))
		return parse_event(body, out);
	if (parse_lost(line, out))
		return line_kind::lost_events;
	out.has_header = false;
	out.hidden_pointer = false;
	return has_slab_event(line) ? line_kind::malformed : line_kind::other;
}

} // namespace tarn::trace
