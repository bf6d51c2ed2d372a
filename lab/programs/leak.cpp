// SPDX-License-Identifier: GPL-2.0-only
// Usage: leak NAME KIND COUNT [close|closed] [PAUSE_EVERY]
// A task called NAME allocates COUNT kernel objects of KIND (pipe, file, eventfd, socket, vma,
// epoll, index), prints "taken COUNT" and keeps them until it is killed. With "close" it frees them
// one by one and exits; with "closed" it frees each one before it allocates the next. It pauses
// after every PAUSE_EVERY objects, so that a tracker can keep up. An index is a node of the page
// index of /dev/zram1, which goes with the device's last reader.
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "failure.h"

namespace
{

using lab::must;

constexpr std::size_t page = 4096;

// The handles of one object, needed to free it.
struct object {
	int fds[2] = {-1, -1};
	void *area = nullptr;
	int watched = -1;
};

// Reads one page per node of the index.
void read_far_page(int i)
{
	static const int fd = must(open("/dev/zram1", O_RDONLY), "/dev/zram1");
	constexpr off_t node_size = 64 * page;
	char byte = 0;

	if (i == 0)
		posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
	if (pread(fd, &byte, 1, i * node_size) != 1)
		lab::fail("/dev/zram1 ends at node %d", i);
}

// An epoll set watches each file descriptor once.
int watched_set()
{
	static const int set = must(epoll_create1(0), "epoll_create1");

	return set;
}

object take(std::string_view kind, int i)
{
	object taken;

	if (kind == "pipe") {
		must(pipe(taken.fds), "pipe");
	} else if (kind == "file") {
		taken.fds[0] = must(open("/dev/null", O_RDONLY), "open");
	} else if (kind == "eventfd") {
		taken.fds[0] = must(eventfd(0, 0), "eventfd");
	} else if (kind == "socket") {
		taken.fds[0] = must(socket(AF_UNIX, SOCK_DGRAM, 0), "socket");
	} else if (kind == "vma") {
		// Neighbours with different protection are not merged into one area.
		taken.area = mmap(nullptr, page, i % 2 ? PROT_READ : PROT_WRITE,
				  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
		if (taken.area == MAP_FAILED)
			lab::fail("mmap: %s", std::strerror(errno));
	} else if (kind == "epoll") {
		static const int event = must(eventfd(0, 0), "eventfd");
		epoll_event interest{};

		taken.watched = must(dup(event), "dup");
		must(epoll_ctl(watched_set(), EPOLL_CTL_ADD, taken.watched, &interest), "add");
	} else if (kind == "index") {
		read_far_page(i);
	} else {
		lab::fail("unknown kind");
	}
	return taken;
}

void give_back(const object &taken)
{
	for (const int fd : taken.fds) {
		if (fd >= 0)
			close(fd);
	}
	if (taken.watched >= 0) {
		must(epoll_ctl(watched_set(), EPOLL_CTL_DEL, taken.watched, nullptr), "delete");
		close(taken.watched);
	}
	if (taken.area)
		munmap(taken.area, page);
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 4)
		lab::fail("usage: leak NAME KIND COUNT [close|closed] [PAUSE_EVERY]");
	const int count = std::atoi(argv[3]);
	const std::string_view mode = argc > 4 ? argv[4] : "";
	const int pause_every = argc > 5 ? std::atoi(argv[5]) : 0;
	std::vector<object> kept;
	const auto breathe = [pause_every](int i) {
		if (pause_every && i % pause_every == pause_every - 1)
			usleep(50'000);
	};

	prctl(PR_SET_NAME, argv[1]);
	for (int i = 0; i < count; i++) {
		const object taken = take(argv[2], i);

		if (mode == "closed")
			give_back(taken);
		else
			kept.push_back(taken);
		breathe(i);
	}
	std::printf("taken %d\n", count);
	std::fflush(stdout);
	if (mode.empty())
		pause();
	for (int i = 0; const object &taken : kept) {
		give_back(taken);
		breathe(i++);
	}
}
