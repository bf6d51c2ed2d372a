// SPDX-License-Identifier: GPL-2.0-only
#include "trace_testing.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>
#include <sstream>

namespace tarn::trace
{

namespace
{

const std::string sample = EXAMPLES_DIR "/fd-leak.ftrace.xz";

// A second reading of the recorded trace, as plain as can be: all of it in memory, stream operators
// and maps, none of the reader's code.
struct plain_event {
	std::string kind, comm, site, ptr, name, bytes;
	std::vector<std::string> block;
	bool has_block = false;
};

std::string unpack(const std::string &path)
{
	std::FILE *pipe = popen(("xz -dc " + path).c_str(), "r");
	std::string out;
	char buffer[4096];

	while (const std::size_t n = std::fread(buffer, 1, sizeof(buffer), pipe))
		out.append(buffer, n);
	EXPECT_EQ(pclose(pipe), 0);
	return out;
}

std::string field(const std::string &text, const std::string &key)
{
	const std::size_t at = text.find(" " + key + "=");
	if (at == std::string::npos)
		return {};
	const std::size_t start = at + key.size() + 2;
	return text.substr(start, text.find(' ', start) - start);
}

std::vector<plain_event> plain_events(const std::string &text)
{
	std::vector<plain_event> events;
	std::map<std::string, std::size_t> last;
	std::vector<std::string> *block = nullptr;
	std::vector<std::string> nowhere;
	std::istringstream lines(text);
	for (std::string l; std::getline(lines, l);) {
		if (l.ends_with('\r'))
			l.pop_back();
		if (l.starts_with("#"))
			continue;
		if (l.starts_with(" => ")) {
			block->push_back(l.substr(4));
			continue;
		}
		const std::string cpu = l.substr(l.find('['), 5);
		if (l.ends_with("<stack trace>")) {
			plain_event &e = events.at(last.at(cpu));
			block = e.has_block ? &nowhere : &e.block;
			e.has_block = true;
			continue;
		}
		plain_event e;
		std::istringstream words(l.substr(l.find(": ") + 2));
		words >> e.kind;
		e.kind.pop_back();
		e.comm = l.substr(0, 16);
		e.comm.erase(0, e.comm.find_first_not_of(' '));
		e.site = field(l, "call_site");
		e.ptr = field(l, "ptr");
		e.name = field(l, "name");
		e.bytes = field(l, "bytes_alloc");
		last[cpu] = events.size();
		events.push_back(e);
	}
	return events;
}

std::map<std::string, std::string> plain_names(const std::vector<plain_event> &events)
{
	std::map<std::string, std::string> names;
	std::map<std::string, std::string> sites;
	for (const plain_event &e : events) {
		if (e.kind == "kmem_cache_alloc")
			sites[e.ptr] = e.site;
		else if (e.kind == "kmem_cache_free" && sites.contains(e.ptr))
			names.emplace(sites[e.ptr], e.name);
		if (e.kind != "kmem_cache_alloc")
			sites.erase(e.ptr);
	}
	return names;
}

std::string plain_kmalloc(const std::string &bytes)
{
	const int n = std::stoi(bytes);
	return "kmalloc-" + (n % 1024 == 0 ? std::to_string(n / 1024) + "k" : bytes);
}

std::string plain_stack(const plain_event &e)
{
	const std::string function = e.site.substr(0, e.site.find('+'));
	auto at = std::find(e.block.begin(), e.block.end(), function);
	std::string stack = e.site;
	if (at != e.block.end())
		++at;
	else
		EXPECT_TRUE(e.block.empty()) << "the sample has every call site in its stack";
	for (; at != e.block.end(); ++at)
		stack += " " + *at;
	return stack;
}

using counts = std::map<std::string, int>;

counts plain_counts(const std::vector<plain_event> &events)
{
	const std::map<std::string, std::string> names = plain_names(events);
	std::map<std::string, std::string> live;
	counts all;
	for (const plain_event &e : events) {
		std::string name = e.name;
		if (e.kind == "kmalloc")
			name = plain_kmalloc(e.bytes);
		else if (e.kind == "kmem_cache_alloc")
			name = names.contains(e.site) ? names.at(e.site) : "size-" + e.bytes;
		else if (e.kind == "kfree" && !live.contains(e.ptr))
			continue;
		else if (e.kind == "kfree")
			name = live[e.ptr];
		if (e.bytes.empty())
			live.erase(e.ptr);
		else
			live[e.ptr] = name;
		all[name + " " + e.kind + " " + e.comm + ": " + plain_stack(e)]++;
	}
	return all;
}

TEST(trace_sample, equals_a_plain_reading)
{
	const std::vector<plain_event> plain = plain_events(unpack(sample));
	const loaded t(sample);
	EXPECT_EQ(t.dir.facts().events, 16167U);
	EXPECT_EQ(plain.size(), 16167U);

	const char *const kinds[] = {"kmem_cache_alloc", "kmem_cache_free", "kmalloc", "kfree"};
	counts read;
	for (const event &e : t.events) {
		std::string key = t.cache_of(e).name + " " + kinds[static_cast<int>(e.kind)] + " " +
				  std::string(e.task()) + ":";
		for (const std::uint32_t id : t.stacks[e.stack])
			key += " " + written(t.stacks.frames()[id]);
		read[key]++;
	}
	EXPECT_EQ(read, plain_counts(plain));
}

} // namespace

} // namespace tarn::trace
