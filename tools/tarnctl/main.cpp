// SPDX-License-Identifier: GPL-2.0-only
// tarnctl: the command line of the memory adapter.
#include <exception>
#include <new>

#include "cma_read.h"
#include "command.h"
#include "hunt.h"

int main(int argc, char **argv)
{
	CLI::App app("Finds memory leaks of the kernel, and drives its memory services.",
		     "tarnctl");
	int status = 0;

	app.require_subcommand(1);
	tarn::add_hunt(app);
	tarn::add_watch(app, status);
	tarn::add_thresholds(app);
	tarn::add_pages(app);
	tarn::add_cma(app);
	tarn::add_pins(app, status);
	tarn::add_kill(app, status);
	tarn::add_reclaim(app, status);
	tarn::add_drop(app, status);
	tarn::add_compact(app, status);
	tarn::add_watermark(app, status);

	try {
		app.parse(argc, argv);
		return status;
	} catch (const CLI::Success &e) {
		return app.exit(e);
	} catch (const CLI::ArgumentMismatch &) {
		tarn::complain("an option takes one value, and may be given once");
	} catch (const std::bad_alloc &) {
		tarn::complain("there is not enough memory");
	} catch (const tarn::unknown_cache &e) {
		tarn::complain(e.what());
		return tarn::exit_not_found;
	} catch (const tarn::unknown_area &e) {
		tarn::complain(e.what());
		return tarn::exit_not_found;
	} catch (const std::exception &e) {
		tarn::complain(e.what());
	}
	return tarn::exit_usage;
}
