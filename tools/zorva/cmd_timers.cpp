// SPDX-License-Identifier: GPL-2.0
/* zorva timers: both kinds, and whether there is room for more. */
#include "command.h"
#include "print.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

/* How many of each kind can be made; they are never deleted. */
constexpr size_t most_timers = 1024;
constexpr size_t most_hr_timers = 64;

struct kind {
	const char *name;
	const char *title;
	const timer_report *report;
	size_t most;

	/* Nine tenths are gone: the next ones may find no room. */
	bool scarce() const
	{
		return report->timers.size() * 10 >= most * 9;
	}
};

void print_kind(const kind &of)
{
	table shown = { { { "OWNER" },
			  { "ID", true },
			  { "DATA", true },
			  { "PERIOD", true },
			  { "STATE" },
			  { "STARTED AT" } },
			{} };
	size_t running = 0;

	if (!of.report->state.present)
		return;
	for (const timer &one : of.report->timers) {
		running += one.running;
		shown.rows.push_back(
			{ escaped(one.component), fmt::format("{}", one.id),
			  fmt::format("{:#x}", one.data),
			  one.running ? fmt::format("{} ms", one.period_ms)
				      : "-",
			  one.running ? cell("runs", style::good)
				      : cell("stopped", style::dim),
			  one.started_by
				  ? fmt::format("{}:{}",
						escaped(one.started_by->file),
						one.started_by->line)
				  : "-" });
	}
	print(styled(style::bold,
		     fmt::format("{}: {} of {}, {} running", of.title,
				 of.report->timers.size(), of.most, running)) +
	      "\n");
	if (!shown.rows.empty())
		print(table_text(shown));
	if (of.scarce())
		print(styled(style::bad,
			     "Hardly any more can be made: timers are never deleted, so each use must not make its own.") +
		      "\n");
	print("\n");
}

json json_kind(const reading &from, const kind &of)
{
	json out = { { "kind", of.name },
		     { "most", of.most },
		     { "scarce", of.scarce() },
		     { "timers", json::array() } };

	for (const timer &one : of.report->timers) {
		json row = { { "component", json_text(one.component) },
			     { "id", one.id },
			     { "data", one.data },
			     { "period_ms", one.period_ms },
			     { "running", one.running } };

		if (one.started_by) {
			row["file"] = json_text(one.started_by->file);
			row["line"] = one.started_by->line;
		}
		row["at"] = json_place(from, one.at);
		out["timers"].push_back(std::move(row));
	}
	return out;
}

int run(const common_options &common)
{
	reading from;
	bool found = false;

	if (!read_for(common, common.sources[0],
		      { report_kind::timer, report_kind::hrt }, false, from))
		return exit_unreadable;

	const kind kinds[] = {
		{ "tick", "Tick timers", &from.last().timers, most_timers },
		{ "high-resolution", "High-resolution timers",
		  &from.last().hr_timers, most_hr_timers },
	};

	for (const kind &one : kinds)
		found |= one.scarce();
	if (common.json) {
		json out = json_head("timers", from);

		out["kinds"] = json::array();
		for (const kind &one : kinds)
			out["kinds"].push_back(json_kind(from, one));
		print_json(out);
	} else {
		for (const kind &one : kinds)
			print_kind(one);
	}
	return found ? exit_found : exit_nothing;
}

} // namespace

const command timers_command = {
	"timers",
	"the timers, which run, and who started them",
	"Timers are never deleted. The exit status is 1 when nine tenths of those that\n"
	"can be made of a kind are.\n\n"
	"Examples:\n"
	"  zorva timers\n"
	"  zorva timers ssh:root@switch",
	0,
	1,
	nullptr,
	run,
};

} // namespace zorva
