// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace_directory.h>
#include <tarnctl/trace_error.h>
#include <tarnctl/trace_frames.h>
#include <tarnctl/trace_reader.h>

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

/* Any input may be refused; one that is taken must be consistent in what a consumer builds on. */
void read_trace(const std::string &path)
{
	const directory dir(path);
	frame_table frames;
	reader events(path, dir, frames);
	std::vector<std::uint32_t> owner;
	std::vector<std::uint64_t> unseen(dir.caches().size());
	std::uint64_t count = 0;
	for (event e = {}; events.next(e); count++) {
		require(e.cache < dir.caches().size());
		require(e.frame_count >= 1 && e.frame_count <= frame_limit);
		for (const std::uint32_t id : e.stack())
			require(id < frames.size());
		if (e.displaced != none) {
			require(owner.at(e.displaced) != none);
			owner[e.displaced] = none;
		}
		if (is_free(e.kind) && e.object == none) {
			unseen[e.cache]++;
		} else if (is_free(e.kind)) {
			require(owner.at(e.object) == e.cache);
			owner[e.object] = none;
		} else if (e.object != none) {
			require(e.object <= owner.size());
			if (e.object == owner.size())
				owner.push_back(none);
			require(owner[e.object] == none);
			owner[e.object] = e.cache;
		}
	}
	require(count <= dir.event_lines());
	for (std::size_t i = 0; i < unseen.size(); i++)
		require(dir.caches()[i].existing == unseen[i]);
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
		/* Refused. */
	}
	close(fd);
	return 0;
}
