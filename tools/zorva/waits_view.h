/* SPDX-License-Identifier: GPL-2.0 */
/* What the commands that show locks and waits have in common. */
#ifndef ZORVA_TOOL_WAITS_VIEW_H
#define ZORVA_TOOL_WAITS_VIEW_H

#include "command.h"
#include "waits.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace zorva
{

/* Where the board keeps the lines of its modules. */
constexpr char installed_lines[] = "/usr/share/zorva/modules.lines";

/* The option of the commands that look at stacks. */
option modules_option(std::string &path);

/*
 * lines_for - reads the lines of the modules that stacks name
 * @path: as --modules has it; empty: the installed ones, for live reports
 *
 * Return: false, after a complaint, when the path cannot be read.
 */
bool lines_for(const std::string &path, std::string_view source,
	       const model &of, code_lines &into);

/* All of these are escaped. */

/* "fdb-save (40)" */
std::string actor_text(const actor &of);
/* "fw_fdb.c:270" */
std::string site_text(const site &at);
/* The same; without a place, the function that the stack has. */
std::string call_text(const actor &of);
/* "9 s", or "some time" */
std::string elapsed_text(std::optional<uint64_t> now,
			 std::optional<uint64_t> since);
/* "mutex 'fdb'" */
std::string lock_label(const lock_state &of);

/* The locks and the threads as JSON; a waits' "locks" and "threads". */
nlohmann::ordered_json locks_json(const reading &from, const waits &of);
nlohmann::ordered_json actors_json(const reading &from, const waits &of);
nlohmann::ordered_json deadlocks_json(const waits &of);

/*
 * In words: deadlocks, then who else waits for somebody.
 * @all: also those who wait for work
 */
std::string waits_text(const waits &of, bool all);

/* Whether a thread waits for something to do: nobody stands in its way. */
bool waits_for_work(const waits &of, const actor &one);

/* The graph in the language of graphviz. */
std::string waits_dot(const waits &of);

} // namespace zorva

#endif
