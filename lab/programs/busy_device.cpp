// SPDX-License-Identifier: GPL-2.0-only
// Usage: busy_device SECONDS
// A small busy device with one program that leaks. Each child has its own task name:
//
//   sensord   serves 50 requests a second, each over a socket pair with a timer for its timeout.
//             One request in five fails its check, and its early return forgets to close them.
//   thumbs    opens 300 files step by step, closes them step by step, and starts over.
//   indexer   opens, looks and closes, 80 times a second.
//   backup    opens 400 files at once, keeps them for half of the time, and ends without closing
//             one.
//   shell     starts a short-lived child five times a second.
//
// Prints "busy" when all of them run, and ends them after SECONDS.
#include <csignal>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"

namespace
{

using lab::must;

constexpr useconds_t second = 1'000'000;

bool serve_request(unsigned int number)
{
	constexpr itimerspec timeout = {{}, {5, 0}};
	const char request[64] = {};
	char answer[sizeof(request)];
	int channel[2];

	must(socketpair(AF_UNIX, SOCK_STREAM, 0, channel), "socketpair");
	const int timer = must(timerfd_create(CLOCK_MONOTONIC, 0), "timerfd_create");

	must(timerfd_settime(timer, 0, &timeout, nullptr), "timerfd_settime");
	must(write(channel[0], request, sizeof(request)), "write");
	must(read(channel[1], answer, sizeof(answer)), "read");
	if (number % 5 == 4)
		return false; // the leak
	close(timer);
	close(channel[0]);
	close(channel[1]);
	return true;
}

void sensord(unsigned int)
{
	for (unsigned int number = 0;; number++) {
		serve_request(number);
		usleep(second / 50);
	}
}

int open_file()
{
	return must(open("/proc/self/stat", O_RDONLY), "open");
}

void thumbs(unsigned int)
{
	constexpr std::size_t most = 300;
	constexpr useconds_t pause = second / 200;
	std::vector<int> files;

	for (;;) {
		while (files.size() < most) {
			files.push_back(open_file());
			usleep(pause);
		}
		while (!files.empty()) {
			close(files.back());
			files.pop_back();
			usleep(pause);
		}
	}
}

void indexer(unsigned int)
{
	char text[64];

	for (;;) {
		const int file = open_file();

		must(read(file, text, sizeof(text)), "read");
		close(file);
		usleep(second / 80);
	}
}

void backup(unsigned int seconds)
{
	usleep(seconds * second / 5);
	for (int i = 0; i < 400; i++)
		open_file();
	usleep(seconds * second / 2);
}

void shell(unsigned int)
{
	for (;;) {
		const pid_t child = must(fork(), "fork");

		if (child == 0)
			_exit(0);
		waitpid(child, nullptr, 0);
		usleep(second / 5);
	}
}

struct program {
	const char *name;
	void (*run)(unsigned int seconds);
};

constexpr program programs[] = {
	{"sensord", sensord}, {"thumbs", thumbs}, {"indexer", indexer},
	{"backup", backup},   {"shell", shell},
};

} // namespace

int main(int argc, char **argv)
{
	const int seconds = argc == 2 ? std::atoi(argv[1]) : 0;
	std::vector<pid_t> children;

	if (seconds <= 0)
		lab::fail("usage: busy_device SECONDS");
	for (const program &p : programs) {
		const pid_t child = must(fork(), "fork");

		if (child == 0) {
			prctl(PR_SET_NAME, p.name);
			prctl(PR_SET_PDEATHSIG, SIGKILL);
			p.run(static_cast<unsigned int>(seconds));
			_exit(0);
		}
		children.push_back(child);
	}
	std::puts("busy");
	std::fflush(stdout);
	sleep(static_cast<unsigned int>(seconds));
	for (const pid_t child : children)
		kill(child, SIGKILL);
	while (wait(nullptr) > 0) {
	}
}
