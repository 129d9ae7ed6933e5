// SPDX-License-Identifier: GPL-2.0
/* The table of the subcommands, and how they get what they ask about. */
#include "command.h"
#include "print.h"

#include <fmt/format.h>

namespace zorva
{

const std::vector<const command *> commands = {
	&check_command,	 &snapshot_command, &mem_command,   &leaks_command,
	&torn_command,	 &locks_command,    &waits_command, &queues_command,
	&timers_command, &threads_command,  &lines_command, &top_command,
	&report_command, &metrics_command,
};

namespace
{

/* At most so many are shown at once; --verbose shows all that were kept. */
constexpr size_t shown_diagnostics = 5;

void show_diagnostics(const common_options &common, const reading &from)
{
	size_t shown = 0;

	for (const diagnostic &one : from.diagnostics) {
		if (one.level == severity::note && !common.verbose)
			continue;
		if (!common.verbose && ++shown > shown_diagnostics)
			break;

		const std::string at = place_text(from, one.at);

		complain(at.empty() ? escaped(one.text, 200)
				    : fmt::format("{}: {}", escaped(at, 200),
						  escaped(one.text, 200)));
	}
	if (from.errors)
		complain(fmt::format("{} could not be read{}",
				     count_text(from.errors, "line"),
				     common.verbose
					     ? ""
					     : " (--verbose names more)"));
	if (common.verbose && from.other_lines)
		complain(fmt::format("{} of the log in no report",
				     count_text(from.other_lines, "line is",
						"lines are")));
}

} // namespace

bool read_for(const common_options &common, std::string_view source,
	      const std::vector<report_kind> &needed, bool tasks, reading &from)
{
	wants what = { .details = false, .tasks = tasks };
	bool any = needed.empty();

	for (const report_kind kind : needed)
		what.details |= kind == report_kind::mem_detail;
	from = read_input(source, what);
	if (!from.failure.empty()) {
		complain(escaped(from.failure, 300));
		return false;
	}
	show_diagnostics(common, from);
	for (const report_kind kind : needed)
		any |= state_of(from.last(), kind).present;
	if (!any) {
		const std::string name(source.empty() ? live_directory
						      : source);

		complain(fmt::format("{}: no {} in it", escaped(name, 200),
				     report_name(needed.front())));
	}
	return any;
}

bool read_all_for(const common_options &common, std::vector<reading> &from,
		  std::vector<const model *> &moments)
{
	from.resize(common.sources.size());
	for (size_t i = 0; i < from.size(); ++i) {
		if (!read_for(common, common.sources[i],
			      { report_kind::mem_detail, report_kind::mem,
				report_kind::mutex_detail, report_kind::mutex,
				report_kind::sem_detail, report_kind::sem,
				report_kind::thread, report_kind::msgq,
				report_kind::timer, report_kind::hrt },
			      true, from[i]))
			return false;
		for (const model &one : from[i].moments)
			moments.push_back(&one);
	}
	return true;
}

} // namespace zorva
