// SPDX-License-Identifier: GPL-2.0-only
// tarnctl: the command line of the memory adapter.
#include <exception>
#include <new>
#include <sstream>

#include <tarnctl/cma/cma_reader.h>
#include <tarnctl/command/command.h>
#include <tarnctl/hunt/hunt.h>

namespace
{

int run(int argc, char **argv)
{
	CLI::App app("Finds memory leaks in the kernel and drives its memory services.", "tarnctl");
	int status = 0;

	app.require_subcommand(1);
	app.set_version_flag("--version", "tarnctl " TARN_VERSION, "Print the version and exit");
	tarn::add_hunt(app, status);
	tarn::add_caches(app, status);
	tarn::add_watch(app, status);
	tarn::add_thresholds(app);
	tarn::add_pages(app);
	tarn::add_cma(app, status);
	tarn::add_pins(app, status);
	tarn::add_kill(app, status);
	tarn::add_reclaim(app, status);
	tarn::add_drop(app, status);
	tarn::add_compact(app, status);
	tarn::add_watermark(app, status);

	try {
		app.parse(argc, argv);
	} catch (const CLI::Success &help) {
		std::ostringstream text;

		app.exit(help, text, text);
		tarn::print_out(text.str());
	} catch (const CLI::ParseError &error) {
		throw tarn::usage_error(tarn::usage_sentence(app, error));
	}
	return status;
}

} // namespace

int main(int argc, char **argv)
{
	try {
		tarn::occupy_standard_files();
		return run(argc, argv);
	} catch (const std::bad_alloc &) {
		tarn::print_error("out of memory");
	} catch (const tarn::unknown_cache &e) {
		tarn::print_error(e.what());
		return tarn::exit_not_found;
	} catch (const tarn::unknown_area &e) {
		tarn::print_error(e.what());
		return tarn::exit_not_found;
	} catch (const std::exception &e) {
		tarn::print_error(e.what());
	}
	return tarn::exit_usage;
}
