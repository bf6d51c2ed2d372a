// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/ledger.h>
#include <tarnctl/ledger/screen.h>
#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/error.h>
#include <tarnctl/trace/reader.h>
#include <tarnctl/trace/stacks.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace
{

using namespace tarn::trace;

void require(bool condition)
{
	if (!condition)
		abort();
}

// Any input may be rejected; an accepted one must satisfy what its consumers rely on.
void read_trace(const std::string &path)
{
	const cache_index dir(path);
	stack_table stacks;
	reader events(path, dir, stacks);
	tarn::ledger::ledger account(dir, stacks, {}, {});
	std::vector<std::uint32_t> owner;
	std::vector<std::uint64_t> unseen(dir.caches().size());
	std::uint64_t count = 0;
	std::uint64_t living = 0;

	for (event e = {}; events.next(e); count++) {
		require(e.cache < dir.caches().size() || (e.cache == none && is_free(e.kind)));
		require(e.stack < stacks.size() && !stacks[e.stack].empty());
		account.take(e);
		if (e.displaced != none) {
			require(owner.at(e.displaced) != none);
			owner[e.displaced] = none;
			living--;
		}
		if (is_free(e.kind) && e.object == none) {
			if (e.cache != none && e.ptr != 0)
				unseen[e.cache]++;
		} else if (is_free(e.kind)) {
			require(owner.at(e.object) != none);
			if (owner[e.object] != e.cache)
				unseen[e.cache]++;
			owner[e.object] = none;
			living--;
		} else if (e.object != none) {
			require(e.object <= owner.size());
			if (e.object == owner.size())
				owner.push_back(none);
			require(owner[e.object] == none);
			owner[e.object] = e.cache;
			living++;
		}
	}
	require(count == dir.facts().events);
	for (std::size_t i = 0; i < unseen.size(); i++)
		require(dir.caches()[i].existing == unseen[i]);
	account.finish();
	for (const tarn::ledger::cache_account &c : account.caches()) {
		require(c.allocated == c.freed + c.unseen + c.live);
		living -= c.live;
	}
	require(living == 0);
	tarn::ledger::screen_text(account, {}, {});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const int fd = memfd_create("trace", MFD_CLOEXEC);
	require(fd >= 0);
	require(write(fd, data, size) == static_cast<ssize_t>(size));
	try {
		read_trace("/proc/self/fd/" + std::to_string(fd));
	} catch (const trace_error &) {
		// Rejected.
	}
	close(fd);
	return 0;
}
