// SPDX-License-Identifier: GPL-2.0
/* zorva metrics: what a monitoring system asks for, again and again. */
#include "command.h"
#include "metrics.h"
#include "parser.h"
#include "print.h"
#include "source.h"

#include <fmt/format.h>

namespace zorva
{
namespace
{

bool torn;

std::vector<option> options()
{
	return {
		{ "--torn", "",
		  "look for damaged blocks as well, in zorva.mem.detail",
		  &torn },
	};
}

/* Who has no mutex can be in no circle of those who wait for one. */
void leave_out_bystanders(model &from)
{
	std::erase_if(from.threads.threads, [&](const thread &one) {
		for (const lock &its : best_locks(from, true).locks)
			if (its.taken && its.locker_pid == one.pid)
				return false;
		return true;
	});
}

/*
 * Of a live machine just what is needed: this is asked every few seconds, and
 * each report costs the switch something.
 */
bool read_live(reading &from)
{
	const std::string directory = live_directory;
	std::string text;

	for (const report_kind kind :
	     { report_kind::mutex, report_kind::thread, report_kind::msgq,
	       report_kind::mem, report_kind::mem_detail }) {
		const std::string path = directory + '/' + report_name(kind);

		if (kind == report_kind::mem_detail && !torn)
			continue;
		if (!read_file(path, text)) {
			complain(path +
				 " cannot be read (is the module loaded?)");
			return false;
		}
		parse_file(from, path, text);
	}

	leave_out_bystanders(from.moments.back());
	if (read_file("/proc/uptime", text))
		parse_file(from, "/proc/uptime", text);
	complete_last_moment(from);
	return true;
}

int run(const common_options &common)
{
	const std::string &source = common.sources[0];
	reading from;

	if (common.json) {
		complain(
			"metrics prints OpenMetrics, which is no JSON: leave out --json");
		return exit_usage;
	}
	if (source.empty() || source == "live") {
		if (!read_live(from))
			return exit_unreadable;
	} else if (!read_for(common, source,
			     { report_kind::mem, report_kind::msgq,
			       report_kind::mutex, report_kind::mutex_detail,
			       report_kind::mem_detail },
			     false, from)) {
		return exit_unreadable;
	}
	if (torn && !from.last().blocks.state.present) {
		complain("--torn needs zorva.mem.detail, which is not there");
		return exit_unreadable;
	}
	print(metrics_text(from, torn));
	return exit_nothing;
}

} // namespace

const command metrics_command = {
	"metrics",
	"figures for a monitoring system, as OpenMetrics",
	"Memory by component, mutexes that are held and for how long, queues, circles of\n"
	"threads that wait for each other. Reads zorva.mem, zorva.mutex, zorva.thread and\n"
	"zorva.msgq, and only with --torn the detailed memory report, which is dear on a\n"
	"busy switch. The exit status is 0 whatever the figures are.\n\n"
	"Examples:\n"
	"  zorva metrics\n"
	"  zorva metrics --torn board.txt",
	0,
	1,
	options,
	run,
};

} // namespace zorva
