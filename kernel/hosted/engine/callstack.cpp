// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/judge.h>
#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <tuple>

namespace hosted
{

namespace
{

constexpr unsigned long text_start = 0xffffffc008000000;
constexpr unsigned long text_alignment = 16;

// module, name, size
using symbol = std::tuple<std::string, std::string, std::uint32_t>;

struct symbol_table {
	std::shared_mutex lock;
	std::map<symbol, unsigned long> addresses;
	std::map<unsigned long, const symbol *> symbols;
	unsigned long end = text_start;
};

symbol_table &table()
{
	static symbol_table the_table;
	return the_table;
}

unsigned long start_of(const symbol &key)
{
	symbol_table &t = table();
	{
		const std::shared_lock guard(t.lock);
		const auto known = t.addresses.find(key);
		if (known != t.addresses.end())
			return known->second;
	}
	const std::unique_lock guard(t.lock);
	const auto [entry, added] = t.addresses.try_emplace(key, t.end);
	if (added) {
		t.symbols.emplace(t.end, &entry->first);
		// The byte after the end also belongs to the symbol: a call that never returns has
		// it as its return address.
		const unsigned long span = std::get<std::uint32_t>(key) + 1UL;
		t.end += (span + text_alignment - 1) / text_alignment * text_alignment;
	}
	return entry->second;
}

} // namespace

unsigned long symbol_address(std::string_view name, std::uint32_t offset, std::uint32_t size,
			     std::string_view module)
{
	if (offset > size)
		judge_stop("symbol", fmt::format("{}+{:#x}/{:#x} is outside", name, offset, size));
	return start_of({std::string(module), std::string(name), size}) + offset;
}

std::string symbol_text(unsigned long address)
{
	symbol_table &t = table();
	const std::shared_lock guard(t.lock);
	const auto next = t.symbols.upper_bound(address);
	if (next == t.symbols.begin())
		return fmt::format("{:#x}", address);
	const auto &[start, found] = *std::prev(next);
	const auto &[module, name, size] = *found;
	if (address - start > (size != 0 ? size : text_alignment - 1))
		return fmt::format("{:#x}", address);
	std::string text = name;
	if (size != 0)
		text += fmt::format("+{:#x}/{:#x}", address - start, size);
	if (!module.empty())
		text += fmt::format(" [{}]", module);
	return text;
}

} // namespace hosted
