// SPDX-License-Identifier: GPL-2.0
/*
 * zorva: what a running switch, or what was saved of one, has to say.
 *
 * Puts the command line together from the tables of the commands.
 */
#include "command.h"
#include "print.h"

/*
 * To set up the streams of the C++ library costs more than many an answer, and
 * only the help is printed by them. Their header would set them up each time;
 * here run() does, and they are declared as that header declares them.
 */
#define _GLIBCXX_IOSTREAM 1
#include <istream>
#include <ostream>
namespace std
{
extern istream cin;
extern ostream cout;
extern ostream cerr;
extern ostream clog;
} // namespace std

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace zorva
{
namespace
{

constexpr char sources_help[] =
	"SOURCE is one of:\n"
	"  (none), live   this machine's /proc/zorva\n"
	"  DIRECTORY      with the report files in it\n"
	"  FILE           a snapshot, the output of \"tail -n +1 /proc/zorva/*\",\n"
	"                 or the log of a serial console\n"
	"  -              any of these files, on standard input\n"
	"  ssh:HOST       another machine, read through ssh\n"
	"  cmd:COMMAND    what a command prints, for any other way there\n";

constexpr char status_help[] =
	"Exit status: 0 nothing found, 1 found, 2 wrong use, 3 unreadable input.\n"
	"NO_COLOR in the environment switches colours off.";

void add_option(CLI::App &app, const option &one)
{
	CLI::Option *added = std::visit(
		[&](auto *into) -> CLI::Option * {
			if constexpr (std::is_same_v<decltype(into), bool *>)
				return app.add_flag(one.names, *into, one.help);
			else
				return app.add_option(one.names, *into,
						      one.help);
		},
		one.into);

	if (!one.value.empty())
		added->option_text(one.value);
	if (!one.choices.empty())
		added->check(CLI::IsMember(one.choices));
}

struct chosen {
	const command *which = nullptr;
	common_options common;
	std::vector<std::string> from;
	std::string colour = "auto";
};

void add_command(CLI::App &app, const command &one, chosen &choice)
{
	CLI::App *sub = app.add_subcommand(one.name, one.summary);
	std::string footer = one.help;

	if (one.options)
		for (const option &its : one.options())
			add_option(*sub, its);
	if (one.sources_max) {
		sub->add_option("SOURCE", choice.common.sources,
				"where the reports are (default: live)")
			->expected(0, one.sources_max > 1 ? -1 : 1);
		sub->add_option("--from", choice.from, "the same, as an option")
			->option_text("SOURCE")
			->expected(1)
			->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
		footer += "\n\n";
		footer += sources_help;
	} else {
		footer += "\n";
	}
	sub->add_flag("--json", choice.common.json,
		      "print JSON, as zorva.schema.json says");
	sub->add_flag("--bytes", look.exact_bytes, "exact sizes, in bytes");
	sub->add_flag("-v,--verbose", choice.common.verbose,
		      "name all that could not be read");
	sub->add_option("--color", choice.colour,
			"colours: auto, always or never")
		->option_text("WHEN")
		->check(CLI::IsMember({ "auto", "always", "never" }));
	sub->footer(footer + "\n" + status_help);
	sub->callback([&choice, &one] {
		choice.which = &one;
	});
}

/* An empty variable counts as none. */
bool is_set(const char *name)
{
	const char *value = getenv(name);

	return value && *value;
}

bool wants_colours(const std::string &when)
{
	const char *terminal = getenv("TERM");

	if (when != "auto")
		return when == "always";
	return isatty(STDOUT_FILENO) && !is_set("NO_COLOR") && terminal &&
	       std::string_view(terminal) != "dumb";
}

int wrong_use(std::string_view text)
{
	complain(escaped(text, 300));
	complain(
		"\"zorva --help\" lists the commands, \"zorva COMMAND --help\" explains one");
	return exit_usage;
}

const command *command_of(std::string_view name)
{
	for (const command *one : commands)
		if (name == one->name)
			return one;
	return nullptr;
}

/* What was printed is worth the status only if it has got out. */
int flushed(int status)
{
	if (fflush(stdout) == 0)
		return status;
	complain("standard output cannot be written");
	return exit_unreadable;
}

/*
 * A command by itself has nothing to be taken apart, and on the board putting
 * all of them together takes longer than many an answer. So does cleaning up,
 * which the kernel does at once.
 */
[[noreturn]] void run_alone(const command &one)
{
	common_options common;

	common.sources.emplace_back();
	look.colours = wants_colours("auto");
	_exit(flushed(one.run(common)));
}

int run(int argc, char **argv)
{
	if (argc == 2)
		if (const command *one = command_of(argv[1]))
			if (!one->sources_min)
				run_alone(*one);

	const std::ios_base::Init streams;
	CLI::App app("What a running switch, or what was saved of one, has to say.",
		     "zorva");
	chosen choice;

	app.require_subcommand(1);
	app.set_version_flag("--version", ZORVA_TOOL_VERSION);
	app.footer(
		std::string(
			"Example:\n  zorva mem --by site --top 5 board.txt\n\n") +
		sources_help + "\n" + status_help);
	for (const command *one : commands)
		add_command(app, *one, choice);

	try {
		app.parse(argc, argv);
	} catch (const CLI::Success &wanted) {
		app.exit(wanted);
		return exit_nothing;
	} catch (const CLI::ParseError &error) {
		return wrong_use(error.what());
	}

	common_options &common = choice.common;

	common.sources.insert(common.sources.end(), choice.from.begin(),
			      choice.from.end());
	if (common.sources.size() < choice.which->sources_min)
		return wrong_use(std::string(choice.which->name) +
				 " needs more sources");
	if (common.sources.size() > choice.which->sources_max)
		return wrong_use(std::string(choice.which->name) +
				 " takes fewer sources");
	if (common.sources.empty())
		common.sources.emplace_back();
	look.colours = wants_colours(choice.colour) && !common.json;
	return choice.which->run(common);
}

} // namespace
} // namespace zorva

int main(int argc, char **argv)
{
	signal(SIGPIPE, SIG_IGN);
	try {
		return zorva::flushed(zorva::run(argc, argv));
	} catch (const std::bad_alloc &) {
		zorva::complain("out of memory");
	} catch (const std::exception &error) {
		zorva::complain(zorva::escaped(error.what(), 300));
	}
	return zorva::exit_unreadable;
}
