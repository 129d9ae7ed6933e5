/* SPDX-License-Identifier: GPL-2.0 */
/*
 * From a return address on a kernel stack to the line of the call: the lines
 * of the modules' functions, from their debug information or from a list that
 * was made of it.
 *
 * /proc/PID/stack names functions, not addresses, so the lines are kept by
 * function and offset. What is not in the lines of the module that runs is
 * not guessed: a function of another size is another build's.
 */
#ifndef ZORVA_TOOL_SYMBOLS_H
#define ZORVA_TOOL_SYMBOLS_H

#include "model.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zorva
{

/* From this offset on, up to the next row's, the code is of this line. */
struct line_row {
	uint32_t offset = 0; /* bytes from the function's start */
	uint32_t file = 0;   /* index into module_lines::files */
	uint32_t line = 0;   /* 0: of none */
};

struct function_lines {
	std::string name;
	uint64_t size = 0; /* bytes, as the kernel counts them; 0: not known */
	std::vector<line_row> rows; /* by offset */
};

struct module_lines {
	std::string name; /* as the kernel has it: "_" for "-" */
	/* From the start of a call to the address it returns to. */
	uint32_t call_size = 1;
	std::vector<std::string> files;	       /* without directories */
	std::vector<function_lines> functions; /* by name */
};

struct code_lines {
	std::vector<module_lines> modules;
	std::vector<std::string> problems; /* what could not be read, and why */
};

/* Whether a module's lines are wanted. */
using module_filter = std::function<bool(std::string_view name)>;

/*
 * load_lines - reads the lines of modules
 * @path: a directory with modules that have debug information (*.ko,
 *	*.ko.debug; also below it) or lists of lines (*.lines); or one such file
 * @wanted: of which modules
 * @into: gets them, and what could not be read
 *
 * Return: false when the path itself cannot be read; "problems" says why.
 */
bool load_lines(const std::string &path, const module_filter &wanted,
		code_lines &into);

/*
 * Reads a module's debug information; the board's build cannot, and says so.
 * The name is that of the file without its ending.
 */
bool read_debug_information(const std::string &path, std::string name,
			    code_lines &into);

/* Reads a list of lines; what is wrong with it becomes a problem. */
bool read_lines(std::string_view path, std::string_view text,
		const module_filter &wanted, code_lines &into);

/* Puts a module's functions in order. */
void sort_functions(module_lines &of);

/* The list that read_lines() reads. */
std::string lines_text(const code_lines &from);

/*
 * Where a frame's call may be in the source. More than one: functions of that
 * name and size are there more than once.
 */
std::vector<site> call_sites(const code_lines &lines, const stack_frame &frame);

/*
 * Whether a frame's module is among the lines, but the function has another
 * size there or is missing: they are of another build than the one that runs.
 */
bool is_other_build(const code_lines &lines, const stack_frame &frame);

/* Whether a place in the source is in the function of a frame. */
bool covers(const code_lines &lines, const stack_frame &frame,
	    const site &place);

/*
 * Whether a file that a lock's history names, with its first 15 characters,
 * may be that file.
 */
bool same_file(std::string_view recorded, std::string_view file);

} // namespace zorva

#endif
