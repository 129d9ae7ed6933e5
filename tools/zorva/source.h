/* SPDX-License-Identifier: GPL-2.0 */
/* Where texts come from: files, directories, commands, other machines. */
#ifndef ZORVA_TOOL_SOURCE_H
#define ZORVA_TOOL_SOURCE_H

#include "read.h"

#include <string>
#include <string_view>

namespace zorva
{

/* See read_input(). What cannot be read goes into the reading's failure. */
void read_source(reading &into, std::string_view source, const wants &what);

/* Whether a source is a command to be run, here or on another machine. */
bool is_command(std::string_view source);

struct command_output {
	std::string text;
	bool ended_badly = false;
	std::string failure; /* why there is no text */
};

/* Runs such a source. */
command_output run_source(std::string_view source);

/* The directories of all tasks: /proc/39/task/39 and so on. */
std::vector<std::string> tasks_of(const std::string &proc);

/* Removes what was half written, if it is a file and no device. */
void remove_half(const std::string &path);

/* A whole file; false with errno when it cannot be read. */
bool read_file(const std::string &path, std::string &to);

} // namespace zorva

#endif
