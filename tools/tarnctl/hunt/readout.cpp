// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/readout.h>

#include <concepts>

#include <fmt/format.h>

#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

// Reads a readout from front to back.
class cursor
{
public:
	explicit cursor(std::string_view text) : text_(text) {}

	[[nodiscard]] bool at_end() const
	{
		return text_.empty();
	}

	bool accept(std::string_view token)
	{
		return take_literal(text_, token);
	}

	void expect(std::string_view token)
	{
		if (!accept(token))
			fail();
	}

	template <std::integral number_type>
	number_type number(int base = 10)
	{
		number_type value{};

		if (!take_number(text_, value, base))
			fail();
		return value;
	}

	std::string_view until(std::string_view token)
	{
		const std::size_t at = text_.find(token);

		if (at == std::string_view::npos)
			fail();
		const std::string_view found = text_.substr(0, at);

		text_.remove_prefix(at + token.size());
		return found;
	}

	// A task's name may contain the characters that end a record's line. The end is the first
	// place that is followed by what may follow a record.
	std::string_view until_record_end()
	{
		for (std::size_t at = text_.find("]\n"); at != std::string_view::npos;
		     at = text_.find("]\n", at + 1)) {
			const std::string_view rest = text_.substr(at + 2);

			if (rest.empty() || rest.starts_with("  ") || rest.starts_with("[0x") ||
			    rest.starts_with("@@@@@")) {
				const std::string_view found = text_.substr(0, at);

				text_ = rest;
				return found;
			}
		}
		fail();
	}

	[[noreturn]] void fail() const
	{
		throw readout_error(fmt::format("the readout is cut off or damaged at \"{}\"",
						text_.substr(0, text_.find('\n')).substr(0, 60)));
	}

private:
	std::string_view text_;
};

caller_record parse_record(cursor &in)
{
	caller_record record;

	record.handle = fmt::format("0x{:x}", in.number<std::uint64_t>(16));
	in.expect(" c:(");
	record.count = in.number<std::int64_t>();
	in.expect("/");
	record.total = in.number<std::uint64_t>();
	in.expect(") (p:");
	record.pid_min = in.number<std::int64_t>();
	in.expect("-");
	record.pid_max = in.number<std::int64_t>();
	in.expect(") ");
	record.comm = in.until_record_end();
	while (in.accept("  "))
		record.frames.emplace_back(in.until("\n"));
	return record;
}

} // namespace

readout parse_readout(std::string_view text)
{
	readout result;
	cursor in(text);

	while (!in.at_end()) {
		in.expect("@@@@@");
		const std::string_view title = in.until("@@@@@\n");
		const std::size_t space = title.rfind(' ');

		if (space == std::string_view::npos)
			in.fail();
		const std::string_view kind = title.substr(space + 1);

		if (kind != "SLUB_ALLOC" && kind != "SLUB_FREE")
			in.fail();
		result.cache = title.substr(0, space);
		auto &records = kind == "SLUB_ALLOC" ? result.alloc : result.free;

		while (in.accept("[0x"))
			records.push_back(parse_record(in));
	}
	return result;
}

} // namespace tarn
