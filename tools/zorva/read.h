/* SPDX-License-Identifier: GPL-2.0 */
/*
 * From a source, whatever it is, to the model of what it says.
 *
 * Nothing is dropped in silence: what looks like a part of a report and cannot
 * be read becomes a diagnostic with its place, and is counted.
 */
#ifndef ZORVA_TOOL_READ_H
#define ZORVA_TOOL_READ_H

#include "model.h"

#include <string>
#include <string_view>
#include <vector>

namespace zorva
{

enum class severity : uint8_t {
	note,	 /* worth knowing */
	warning, /* something is missing, or was taken for something */
	error,	 /* something could not be read */
};

struct diagnostic {
	severity level = severity::note;
	place at;
	std::string text; /* to be escaped like all that was read */
};

/* A text that was read: a file, a section of a snapshot, a command's output. */
struct input {
	std::string name;
	uint64_t bytes = 0;
};

struct reading {
	std::vector<input> inputs;
	/*
	 * The moments that the source shows, oldest first; never empty. Each
	 * snapshot in it is one; outside of snapshots, a report that comes
	 * again begins another. The last one is whole: it has what is known
	 * best of each report, even when it was read at an earlier moment.
	 */
	std::vector<model> moments;

	std::vector<diagnostic> diagnostics; /* the first of them */
	uint64_t notes = 0;
	uint64_t warnings = 0;
	uint64_t errors = 0;
	uint64_t other_lines = 0; /* of a log: in no report */

	/* The source itself could not be read, and why: nothing else counts. */
	std::string failure;

	const model &last() const
	{
		return moments.back();
	}
};

/* How many diagnostics are kept; the others are only counted. */
constexpr size_t max_diagnostics = 200;

/* Where the live reports are. */
constexpr char live_directory[] = "/proc/zorva";

/* What is dear to read on a live machine, and not every question needs. */
struct wants {
	bool details = true;   /* zorva.mem.detail */
	bool tasks = true;     /* the stacks of all tasks */
	bool histories = true; /* the detailed reports of locks */
	bool others =
		true; /* threads, timers, and of the kernel all but uptime */
};

/*
 * read_input - reads a source
 * @source: "" or "live" for this machine; "-" for the standard input;
 *	"ssh:HOST" for another machine; "cmd:COMMAND" for what a command
 *	prints; else a directory with the report files, or a file: a snapshot,
 *	the output of "tail -n +1 /proc/zorva/""*", or the log of a console.
 * @what: what may be left out of a live machine's
 *
 * Return: what was read. "failure" says that nothing could be, and why.
 */
reading read_input(std::string_view source, const wants &what = {});

/*
 * read_text - reads a text that is already here
 * @name: what diagnostics call it
 */
reading read_text(std::string_view name, std::string_view text);

/* "zorva.mem.detail" and so on. */
const char *report_name(report_kind kind);

/* The report of that name, or of a path that ends in it. */
std::optional<report_kind> report_of(std::string_view path);

/* The state of one of the model's reports. */
const report_state &state_of(const model &of, report_kind kind);

/* "FILE:LINE", or FILE alone without a line; to be escaped. */
std::string place_text(const reading &from, place at);

} // namespace zorva

#endif
