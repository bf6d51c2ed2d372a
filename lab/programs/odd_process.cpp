// SPDX-License-Identifier: GPL-2.0-only
// Usage: odd_process leaderless MIB   its first thread has ended, another one lives on
//        odd_process waiting MIB      sleeps where no signal but a deadly one ends it
// Holds memory until it is killed. Prints "ready THREAD": the living thread, or the child that is
// waited for.
#include <array>
#include <string_view>
#include <thread>

#include <csignal>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "failure.h"

namespace
{

void say_ready(int thread)
{
	std::printf("ready %d\n", thread);
	std::fflush(stdout);
}

int wait_for_death(void *)
{
	prctl(PR_SET_PDEATHSIG, SIGKILL);
	say_ready(getpid());
	for (;;)
		pause();
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 3)
		lab::fail("usage: odd_process leaderless|waiting MIB");
	const std::size_t size = std::strtoul(argv[2], nullptr, 0) << 20;
	void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
			    MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);

	if (memory == MAP_FAILED)
		lab::fail("mmap: %s", std::strerror(errno));
	if (argv[1] == std::string_view("leaderless")) {
		std::thread([] {
			// Wait until the first thread is a zombie.
			usleep(200000);
			say_ready(gettid());
			for (;;)
				pause();
		}).detach();
		pthread_exit(nullptr);
	}
	// The parent of such a child sleeps until the child ends.
	static std::array<char, 65536> stack;

	clone(wait_for_death, stack.data() + stack.size(), CLONE_VFORK | CLONE_VM | SIGCHLD,
	      nullptr);
}
