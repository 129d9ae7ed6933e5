// SPDX-License-Identifier: GPL-2.0
/* zorva waits: who waits for whom, and whether it can ever end. */
#include "command.h"
#include "print.h"
#include "waits_view.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace zorva
{
namespace
{

struct {
	std::string modules;
	bool all = false;
	bool dot = false;
	bool svg = false;
} wanted;

std::vector<option> options()
{
	return {
		modules_option(wanted.modules),
		{ "--all", "", "also those who wait for work", &wanted.all },
		{ "--dot", "", "the graph, for graphviz", &wanted.dot },
		{ "--svg", "", "the graph as a picture, drawn by \"dot\"",
		  &wanted.svg },
	};
}

bool write_all(int fd, std::string_view text)
{
	while (!text.empty()) {
		const ssize_t written = write(fd, text.data(), text.size());

		if (written < 0 && errno == EINTR)
			continue;
		if (written < 0)
			return false;
		text.remove_prefix(static_cast<size_t>(written));
	}
	return true;
}

/* Has graphviz draw it; what it prints goes where this program's does. */
bool draw(const std::string &graph)
{
	char program[] = "dot";
	char format[] = "-Tsvg";
	char *words[] = { program, format, nullptr };
	posix_spawn_file_actions_t actions;
	int ends[2];
	int status = 0;
	pid_t child;

	if (pipe(ends)) {
		complain(fmt::format("pipe: {}", strerror(errno)));
		return false;
	}
	posix_spawn_file_actions_init(&actions);
	posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
	posix_spawn_file_actions_addclose(&actions, ends[0]);
	posix_spawn_file_actions_addclose(&actions, ends[1]);

	const int error = posix_spawnp(&child, program, &actions, nullptr,
				       words, environ);

	posix_spawn_file_actions_destroy(&actions);
	close(ends[0]);
	if (error) {
		close(ends[1]);
		complain(fmt::format("dot, of graphviz: {}", strerror(error)));
		return false;
	}
	write_all(ends[1], graph);
	close(ends[1]);
	while (waitpid(child, &status, 0) < 0 && errno == EINTR)
		;
	if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
		complain("dot could not draw the graph");
		return false;
	}
	return true;
}

void show_json(const reading &from, const waits &found)
{
	nlohmann::ordered_json shown = json_head("waits", from);

	if (found.now)
		shown["time_seconds"] = *found.now;
	shown["deadlocks"] = deadlocks_json(found);
	shown["threads"] = actors_json(from, found);
	shown["locks"] = locks_json(from, found);
	shown["notes"] = nlohmann::ordered_json::array();
	for (const std::string &note : found.notes)
		shown["notes"].push_back(json_text(note));
	print_json(shown);
}

int run(const common_options &common)
{
	code_lines lines;
	reading from;

	if (!read_for(common, common.sources[0],
		      { report_kind::mutex_detail, report_kind::mutex,
			report_kind::sem_detail, report_kind::sem },
		      true, from) ||
	    !lines_for(wanted.modules, common.sources[0], from.last(), lines))
		return exit_unreadable;

	const waits found = find_waits(from.last(), lines);

	if (common.json)
		show_json(from, found);
	else if (wanted.dot)
		print(waits_dot(found));
	else if (wanted.svg && !draw(waits_dot(found)))
		return exit_unreadable;
	else if (!wanted.svg)
		print(waits_text(found, wanted.all));
	return found.deadlocks.empty() ? exit_nothing : exit_found;
}

} // namespace

const command waits_command = {
	"waits",
	"who waits for whom; deadlocks",
	"Shows each thread that waits for a lock or for room in a queue, and who\n"
	"would have to give it. A circle is a deadlock, and is named as one. What is\n"
	"not proven says \"probably\", and why. Exit status 1: there is a deadlock.\n\n"
	"Examples:\n"
	"  zorva waits\n"
	"  zorva waits board.txt --modules build/target\n"
	"  zorva waits board.txt --svg >waits.svg",
	0,
	1,
	options,
	run,
};

} // namespace zorva
