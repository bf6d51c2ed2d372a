// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/terminal/stop_signals.h>

#include <cerrno>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>

namespace tarn
{

namespace
{

// SIGHUP stays ignored under nohup.
bool hang_up_ends()
{
	struct sigaction action = {};

	return sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler != SIG_IGN;
}

} // namespace

stop_signals::stop_signals()
{
	sigset_t set = {};

	sigemptyset(&set);
	sigaddset(&set, SIGINT);
	sigaddset(&set, SIGTERM);
	if (hang_up_ends())
		sigaddset(&set, SIGHUP);
	signals_ = file_descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
	if (signals_.get() < 0)
		throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
	sigprocmask(SIG_BLOCK, &set, &before_);
}

stop_signals::~stop_signals()
{
	sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool stop_signals::wait(std::chrono::milliseconds time)
{
	bool readable = false;

	return wait(time, -1, readable);
}

bool stop_signals::wait(std::chrono::milliseconds time, int file, bool &readable)
{
	pollfd files[] = {{signals_.get(), POLLIN, 0}, {file, POLLIN, 0}};
	signalfd_siginfo taken;

	readable = false;
	if (poll(files, std::size(files), static_cast<int>(time.count())) < 0 && errno != EINTR)
		throw std::system_error(errno, std::generic_category(), "cannot wait");
	readable = files[1].revents != 0;
	return files[0].revents != 0 &&
	       read(signals_.get(), &taken, sizeof(taken)) == sizeof(taken);
}

} // namespace tarn
