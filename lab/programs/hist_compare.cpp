// SPDX-License-Identifier: GPL-2.0-only
// Usage: hist_compare READOUT KIND HIST ANCHOR PREFIX [TOLERANCE]
// Compares the tracker's counts with the kernel's own histogram of the same events. READOUT is the
// text of a readout and KIND its part (SLUB_ALLOC or SLUB_FREE); HIST is the output of a trigger
// with the keys common_stacktrace and common_pid.execname. Only tasks whose names begin with PREFIX
// are compared; the PREFIX "-" treats all tasks as one, as the tracker does in interrupts.
//
// The two sides start their stacks at different frames of the allocator, and the histogram's stacks
// are deeper. Both are therefore compared from the function ANCHOR on, and only as deep as the
// tracker's. Every stack and task of the tracker, and every one that the histogram has 50 times or
// more, must have equal counts, or counts that differ by no more than TOLERANCE.
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "failure.h"

namespace
{

using stack = std::vector<std::string>;

struct caller {
	stack frames;
	std::string comm;
	long count;
};

std::ifstream open_file(const char *path)
{
	std::ifstream file(path);

	if (!file)
		lab::fail("cannot read %s", path);
	return file;
}

// "[0xHANDLE c:(COUNT/TOTAL) (p:MIN-MAX) COMM]"
caller parse_record(const std::string &line)
{
	long count = 0;
	int comm = 0;

	if (std::sscanf(line.c_str(), "[0x%*x c:(%ld/%*u) (p:%*d-%*d) %n", &count, &comm) != 1 ||
	    comm == 0 || line.back() != ']')
		lab::fail("not a record: %s", line.c_str());
	return {{}, line.substr(comm, line.size() - comm - 1), count};
}

std::vector<caller> parse_readout(const char *path, std::string_view kind)
{
	std::ifstream file = open_file(path);
	std::vector<caller> callers;
	bool wanted = false;

	for (std::string line; std::getline(file, line);) {
		if (line.starts_with("@@@@@"))
			wanted = line.find(kind) != std::string::npos;
		else if (wanted && line.starts_with("["))
			callers.push_back(parse_record(line));
		else if (wanted && line.starts_with("  ") && !callers.empty())
			callers.back().frames.push_back(line.substr(2));
	}
	return callers;
}

std::string word_after(const std::string &line, std::string_view label)
{
	const std::size_t at = line.find(label);

	if (at == std::string::npos)
		return "";
	std::istringstream rest(line.substr(at + label.size()));
	std::string word;

	rest >> word;
	return word;
}

std::vector<caller> parse_hist(const char *path)
{
	std::ifstream file = open_file(path);
	std::vector<caller> callers;
	caller current;

	for (std::string line; std::getline(file, line);) {
		if (line.find("Dropped:") != std::string::npos &&
		    word_after(line, "Dropped:") != "0")
			lab::fail("the histogram lost events: %s", line.c_str());
		if (line.starts_with("#"))
			continue;
		if (line.starts_with("{")) {
			current = {};
			continue;
		}
		const std::string count = word_after(line, "hitcount:");

		if (count.empty()) {
			std::istringstream words(line);
			std::string frame;

			if (words >> frame && frame.find("+0x") != std::string::npos)
				current.frames.push_back(frame);
			continue;
		}
		current.comm = word_after(line, "common_pid:");
		current.count = std::stol(count);
		callers.push_back(current);
	}
	return callers;
}

// The frames from the anchor on; empty if the anchor is not in the stack.
stack from_anchor(const stack &frames, std::string_view anchor)
{
	for (auto frame = frames.begin(); frame != frames.end(); ++frame) {
		if (frame->starts_with(anchor) && (*frame)[anchor.size()] == '+')
			return {frame, frames.end()};
	}
	return {};
}

class comparison
{
public:
	comparison(std::string_view anchor, std::string_view prefix, long tolerance)
		: anchor_(anchor), prefix_(prefix), tolerance_(tolerance)
	{
	}

	void compare(const std::vector<caller> &tracked, const std::vector<caller> &hist)
	{
		for (const caller &record : tracked) {
			if (!wanted(record.comm))
				continue;
			const stack frames = from_anchor(record.frames, anchor_);

			if (frames.empty())
				continue;
			events_ += record.count;
			tracked_[{frames, name(record.comm)}] += record.count;
		}
		for (const caller &entry : hist)
			add(entry);
		report();
	}

private:
	using counts = std::map<std::pair<stack, std::string>, long>;

	[[nodiscard]] bool wanted(const std::string &comm) const
	{
		return prefix_ == "-" ? comm.empty() : comm.starts_with(prefix_);
	}

	[[nodiscard]] std::string name(const std::string &comm) const
	{
		return prefix_ == "-" ? "" : comm;
	}

	// Adds an entry to the tracked stack that its own stack begins with.
	void add(const caller &entry)
	{
		if (prefix_ != "-" && !entry.comm.starts_with(prefix_))
			return;
		stack frames = from_anchor(entry.frames, anchor_);

		if (frames.empty())
			return;
		for (const auto &[key, count] : tracked_) {
			const stack &shorter = key.first;

			if (shorter.size() <= frames.size() &&
			    std::equal(shorter.begin(), shorter.end(), frames.begin())) {
				frames.resize(shorter.size());
				break;
			}
		}
		hist_[{frames, name(entry.comm)}] += entry.count;
	}

	void report() const
	{
		constexpr long reported_from = 50;
		int failures = 0;
		const auto differ = [&failures](const auto &key, long tracker, long kernel) {
			std::printf("%s: tracker %ld, kernel %ld\n", key.second.c_str(), tracker,
				    kernel);
			for (const std::string &frame : key.first)
				std::printf("    %s\n", frame.c_str());
			failures++;
		};

		for (const auto &[key, count] : tracked_) {
			const auto found = hist_.find(key);

			const long kernel = found == hist_.end() ? 0 : found->second;

			if (std::abs(kernel - count) > tolerance_)
				differ(key, count, kernel);
		}
		for (const auto &[key, count] : hist_) {
			if (count >= reported_from + tolerance_ && !tracked_.contains(key))
				differ(key, 0, count);
		}
		if (tracked_.empty())
			lab::fail("the tracker has no records of %.*s",
				  static_cast<int>(anchor_.size()), anchor_.data());
		std::printf("agreed on %ld events in %zu callers\n", events_, tracked_.size());
		std::exit(failures != 0);
	}

	std::string_view anchor_;
	std::string_view prefix_;
	long tolerance_;
	long events_ = 0;
	counts tracked_;
	counts hist_;
};

} // namespace

int main(int argc, char **argv)
{
	if (argc < 6)
		lab::fail("usage: hist_compare READOUT KIND HIST ANCHOR PREFIX [TOLERANCE]");
	comparison(argv[4], argv[5], argc > 6 ? std::atol(argv[6]) : 0)
		.compare(parse_readout(argv[1], argv[2]), parse_hist(argv[3]));
}
