// SPDX-License-Identifier: GPL-2.0-only
// Usage: churn WORKERS
// WORKERS processes allocate and free kernel objects as fast as they can until this program is
// killed; they die with it. Prints "busy" when each has completed a round.
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "failure.h"

namespace
{

void once(int round)
{
	constexpr std::size_t area_size = 16 * 4096;
	int fds[2];
	const char text[256] = {};

	if (pipe(fds) == 0) {
		[[maybe_unused]] const auto written = write(fds[1], text, sizeof(text));

		close(fds[0]);
		close(fds[1]);
	}
	if (socketpair(AF_UNIX, SOCK_DGRAM, 0, fds) == 0) {
		send(fds[0], text, sizeof(text), 0);
		close(fds[0]);
		close(fds[1]);
	}
	close(eventfd(0, 0));
	close(open("/proc/self/stat", O_RDONLY));
	void *area = mmap(nullptr, area_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
			  -1, 0);

	if (area != MAP_FAILED) {
		*static_cast<volatile char *>(area) = 1;
		munmap(area, area_size);
	}
	if (round % 16 == 0) {
		const pid_t child = fork();

		if (child == 0)
			_exit(0);
		waitpid(child, nullptr, 0);
	}
}

} // namespace

int main(int argc, char **argv)
{
	const int workers = argc > 1 ? std::atoi(argv[1]) : 8;
	int ready[2];
	char byte = 0;

	lab::must(pipe(ready), "pipe");
	for (int worker = 0; worker < workers; worker++) {
		if (fork() != 0)
			continue;
		prctl(PR_SET_PDEATHSIG, SIGKILL);
		for (int round = 0;; round++) {
			once(round);
			if (round == 0 && write(ready[1], &byte, 1) != 1)
				_exit(1);
		}
	}
	for (int worker = 0; worker < workers; worker++)
		lab::must(read(ready[0], &byte, 1), "read");
	std::puts("busy");
	std::fflush(stdout);
	pause();
}
