// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/command/usage.h>

#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <tarnctl/terminal/printable.h>
#include <tarnctl/text/near_match.h>

namespace tarn
{

namespace
{

std::vector<std::string> command_names(const CLI::App &app)
{
	std::vector<std::string> names;

	for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; }))
		names.push_back(command->get_name());
	return names;
}

std::vector<std::string> option_names(const CLI::App &command)
{
	std::vector<std::string> names;

	for (const CLI::Option *option : command.get_options()) {
		if (!option->get_positional())
			names.push_back(option->get_name());
	}
	return names;
}

std::string suggestion(const std::string &mistyped, const std::vector<std::string> &names)
{
	const std::vector<std::string> near = near_matches(mistyped, names);

	return near.empty() ? "" : fmt::format("; did you mean {}?", fmt::join(near, " or "));
}

// The innermost command that was given, and how it is called.
struct given_command {
	const CLI::App *app;
	std::string name;
};

given_command find_given(const CLI::App &app)
{
	given_command given = {&app, "tarnctl"};

	while (!given.app->get_subcommands().empty()) {
		given.app = given.app->get_subcommands().front();
		given.name += " " + given.app->get_name();
	}
	return given;
}

std::string unknown_argument(const given_command &given, const std::string &argument,
			     bool wants_command)
{
	const std::string shown = printable(argument);

	if (argument.starts_with('-')) {
		const std::string sentence = fmt::format("unknown option \"{}\"", shown);
		const std::string near = suggestion(argument, option_names(*given.app));

		return sentence +
		       (near.empty() ? fmt::format("; see \"{} --help\"", given.name) : near);
	}
	if (!wants_command)
		return fmt::format("unexpected argument \"{}\"; see \"{} --help\"", shown,
				   given.name);
	const std::vector<std::string> names = command_names(*given.app);
	const std::string near = suggestion(argument, names);

	return fmt::format(
		"unknown command \"{}\"{}", shown,
		near.empty() ? fmt::format("; the commands are {}", fmt::join(names, ", ")) : near);
}

} // namespace

std::string usage_sentence(const CLI::App &app, const CLI::ParseError &error)
{
	const given_command given = find_given(app);
	const std::vector<std::string> unknown = app.remaining(true);
	std::string what = error.what();
	const bool wants_command =
		given.app->get_subcommands().empty() && !command_names(*given.app).empty();

	if (dynamic_cast<const CLI::ArgumentMismatch *>(&error))
		return what.substr(0, what.find(':')) + " needs exactly one value";
	if (!unknown.empty() &&
	    (given.app == &app || dynamic_cast<const CLI::ExtrasError *>(&error)))
		return unknown_argument(given, unknown.front(), wants_command);
	if (given.app == &app && wants_command)
		return fmt::format("no command given; the commands are {}",
				   fmt::join(command_names(app), ", "));
	if (dynamic_cast<const CLI::RequiredError *>(&error))
		return fmt::format("{}; see \"{} --help\"", what, given.name);
	return what;
}

} // namespace tarn
