/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The subcommands, each in a file of its own: cmd_<name>.cpp. Adding one means
 * such a file, a line here and one in commands.cpp.
 */
#ifndef ZORVA_TOOL_COMMAND_H
#define ZORVA_TOOL_COMMAND_H

#include "read.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zorva
{

/* The program's exit status, for scripts. */
enum exit_status : int {
	exit_nothing = 0,    /* nothing found that looks wrong */
	exit_found = 1,	     /* something found */
	exit_usage = 2,	     /* wrong use */
	exit_unreadable = 3, /* what was asked about could not be read */
};

/* What every command takes. */
struct common_options {
	std::vector<std::string> sources; /* at least one; "" is live */
	bool json = false;
	bool verbose = false;
};

/* An option of one command, and the variable that gets its value. */
struct option {
	std::string names; /* "-n,--top" */
	std::string value; /* what its value is called; "" for a flag */
	std::string help;
	std::variant<bool *, uint64_t *, std::string *,
		     std::vector<std::string> *>
		into;
	std::vector<std::string> choices = {}; /* if only these are right */
};

struct command {
	const char *name;
	const char *summary;  /* one line */
	const char *help;     /* what it shows; ends with examples */
	unsigned sources_min; /* how many it must be given */
	unsigned sources_max; /* 0: it reads none */
	std::vector<option> (*options)(); /* may be null */
	int (*run)(const common_options &common);
};

/* In the order of the help. */
extern const std::vector<const command *> commands;

extern const command check_command;
extern const command leaks_command;
extern const command mem_command;
extern const command metrics_command;
extern const command queues_command;
extern const command report_command;
extern const command snapshot_command;
extern const command threads_command;
extern const command timers_command;
extern const command top_command;
extern const command torn_command;
extern const command locks_command;
extern const command waits_command;
extern const command lines_command;

/*
 * read_for - reads a source for a command, and says on standard error what
 * could not be read
 * @needed: the reports of which it needs one at least
 * @tasks: whether it looks at the stacks of tasks
 * @from: gets what was read
 *
 * Return: false when the command has to end with exit_unreadable.
 */
bool read_for(const common_options &common, std::string_view source,
	      const std::vector<report_kind> &needed, bool tasks,
	      reading &from);
/*
 * The same for a command that looks at all reports of all its sources;
 * @moments gets what is in @from, from the first to the last.
 */
bool read_all_for(const common_options &common, std::vector<reading> &from,
		  std::vector<const model *> &moments);

/* The version of what --json prints; see zorva.schema.json. */
constexpr int json_version = 1;

/*
 * The head of what a command prints as JSON: its version, the command, and
 * what was read.
 */
nlohmann::ordered_json json_head(const char *command, const reading &from);
/* For a command that reads more than one source: adds another one's. */
void json_add_reading(nlohmann::ordered_json &head, const reading &from);
/* A place in the input: {"input": NAME, "line": N}. */
nlohmann::ordered_json json_place(const reading &from, place at);
void print_json(const nlohmann::ordered_json &json);

} // namespace zorva

#endif
