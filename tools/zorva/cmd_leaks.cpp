// SPDX-License-Identifier: GPL-2.0
/* zorva leaks: what grows from moment to moment. */
#include "command.h"
#include "memory.h"
#include "print.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

uint64_t top;

std::vector<option> options()
{
	return {
		{ "-n,--top", "N", "only the N that grow most", &top },
	};
}

bool has_memory(const model &of)
{
	return of.blocks.state.whole || of.memory.state.whole;
}

/*
 * The moments that a reading shows. The last one has what only earlier ones
 * know as well: then it is none of its own.
 */
void add_moments(const reading &from, std::vector<const model *> &moments)
{
	const model *before = nullptr;

	for (const model &one : from.moments) {
		if (!has_memory(one))
			continue;
		if (before &&
		    before->blocks.state.begin.line ==
			    one.blocks.state.begin.line &&
		    before->memory.state.begin.line ==
			    one.memory.state.begin.line &&
		    before->blocks.state.begin.input ==
			    one.blocks.state.begin.input)
			continue;
		moments.push_back(&one);
		before = &one;
	}
}

/* Why they cannot be compared; empty when they can. */
std::string obstacle(const std::vector<const model *> &moments)
{
	uint64_t before = 0;

	if (moments.size() < 2)
		return "leaks needs two moments at least; here is only one";
	for (size_t i = 0; i < moments.size(); ++i) {
		const auto now = time_of(*moments[i]);

		if (!now)
			return fmt::format("moment {} does not say when it was",
					   i + 1);
		if (i && *now < before)
			return fmt::
				format("moment {} is earlier than the one before ({} s and {} s after boot): give the oldest first; a restart in between cannot be looked through",
				       i + 1, *now, before);
		before = *now;
	}
	return "";
}

std::string rate_text(const growth &one, uint64_t seconds)
{
	if (!seconds)
		return "-";
	return size_text(static_cast<uint64_t>(
		       static_cast<double>(one.more_bytes()) * 3600 /
		       static_cast<double>(seconds))) +
	       "/h";
}

std::vector<cell> growth_row(const growth &one, const comparison &found)
{
	std::vector<cell> row = { escaped(one.component) };

	if (found.by_site)
		row.push_back(fmt::format("{}:{}", escaped(one.from.file),
					  one.from.line));
	row.insert(row.end(), { growth_text(one.more_bytes()),
				fmt::format("{:+}", one.more_blocks()),
				size_text(one.bytes.back()),
				rate_text(one, found.seconds()),
				found.by_site ? duration_text(one.oldest) : "-",
				one.freed ? fmt::format("{}", *one.freed) : "-",
				fmt::format("{} of {}", one.rises,
					    found.times.size() - 1) });
	return row;
}

void print_growth(const comparison &found, bool only_up, std::string_view title)
{
	table shown = { { { "COMPONENT" } }, {} };
	size_t more = 0;

	if (found.by_site)
		shown.columns.push_back({ "ALLOCATED AT" });
	shown.columns.insert(shown.columns.end(), { { "GREW", true },
						    { "BLOCKS", true },
						    { "NOW", true },
						    { "RATE", true },
						    { "OLDEST", true },
						    { "FREED", true },
						    { "STEPS", true } });
	for (const growth &one : found.grown) {
		if (one.only_up() != only_up)
			continue;
		if (top && shown.rows.size() >= top)
			++more;
		else
			shown.rows.push_back(growth_row(one, found));
	}
	if (shown.rows.empty())
		return;
	print(styled(only_up ? style::bad : style::bold, title) + "\n");
	print(table_text(shown));
	if (more)
		print(fmt::format("... and {} more\n", more));
	print("\n");
}

/* How many bytes a second go for good. */
double loss(const comparison &found)
{
	int64_t cost = 0;

	for (const growth &one : found.grown)
		if (one.only_up())
			cost += one.cost();
	return found.seconds() && cost > 0
		       ? static_cast<double>(cost) /
				 static_cast<double>(found.seconds())
		       : 0;
}

void print_end(double lost, const std::optional<uint64_t> &left)
{
	if (lost <= 0)
		return;
	if (!left) {
		print("How much memory the kernel has left was not read, so it cannot be said how long it lasts.\n");
		return;
	}
	print(fmt::format("With what each block costs beyond its size, {} are lost an hour. The kernel has {} left: {}.\n",
			  size_text(static_cast<uint64_t>(lost * 3600)),
			  size_text(*left),
			  styled(style::bad,
				 "gone in " +
					 duration_text(static_cast<uint64_t>(
						 static_cast<double>(*left) /
						 lost)))));
}

void print_text(const comparison &found, double lost,
		const std::optional<uint64_t> &left)
{
	size_t leaks = 0;

	for (const growth &one : found.grown)
		leaks += one.only_up();
	print(fmt::format("{} within {}; {}.\n\n",
			  count_text(found.times.size(), "moment"),
			  duration_text(found.seconds()),
			  leaks ? count_text(leaks, "place only grows",
					     "places only grow")
				: "nothing only grows"));
	print_growth(found, true, "Only grew:");
	print_growth(found, false,
		     "Went up and down, and is more than at first:");
	if (!found.by_site && leaks)
		print("Without zorva.mem.detail at each moment the places are not known.\n");
	print_end(lost, left);
	if (leaks && found.by_site)
		print("FREED counts blocks of the first moment that are gone: 0 speaks for a leak.\n");
}

json json_growth(const growth &one, const comparison &found)
{
	json out = { { "component", json_text(one.component) } };

	if (found.by_site) {
		out["file"] = json_text(one.from.file);
		out["line"] = one.from.line;
	}
	out["only_up"] = one.only_up();
	out["grown_bytes"] = one.more_bytes();
	out["grown_blocks"] = one.more_blocks();
	out["bytes"] = one.bytes;
	out["blocks"] = one.blocks;
	if (found.seconds())
		out["bytes_per_hour"] = static_cast<double>(one.more_bytes()) *
					3600 /
					static_cast<double>(found.seconds());
	if (found.by_site)
		out["oldest_seconds"] = one.oldest;
	if (one.freed)
		out["freed_blocks"] = *one.freed;
	out["rises"] = one.rises;
	out["falls"] = one.falls;
	return out;
}

void print_as_json(const std::vector<reading> &from, const comparison &found,
		   double lost, const std::optional<uint64_t> &left)
{
	json out = json_head("leaks", from.back());
	size_t shown = 0;

	for (size_t i = 0; i + 1 < from.size(); ++i)
		json_add_reading(out, from[i]);
	out["times_seconds"] = found.times;
	out["by"] = found.by_site ? "site" : "component";
	out["lost_bytes_per_hour"] = lost * 3600;
	if (left) {
		out["available_bytes"] = *left;
		if (lost > 0)
			out["gone_in_seconds"] = static_cast<uint64_t>(
				static_cast<double>(*left) / lost);
	}
	out["steady"] = found.steady;
	out["grown"] = json::array();
	for (const growth &one : found.grown)
		if (!top || shown++ < top)
			out["grown"].push_back(json_growth(one, found));
	print_json(out);
}

int run(const common_options &common)
{
	std::vector<reading> from(common.sources.size());
	std::vector<const model *> moments;

	for (size_t i = 0; i < from.size(); ++i) {
		if (!read_for(common, common.sources[i],
			      { report_kind::mem_detail, report_kind::mem },
			      false, from[i]))
			return exit_unreadable;
		add_moments(from[i], moments);
	}

	const std::string problem = obstacle(moments);

	if (!problem.empty()) {
		complain(problem);
		return exit_usage;
	}

	const comparison found = compare(moments);
	const double lost = loss(found);
	const auto left = available_memory(*moments.back());

	if (common.json)
		print_as_json(from, found, lost, left);
	else
		print_text(found, lost, left);
	for (const growth &one : found.grown)
		if (one.only_up())
			return exit_found;
	return exit_nothing;
}

} // namespace

const command leaks_command = {
	"leaks",
	"what grows from one moment to the next",
	"Compares two or more moments, oldest first: snapshots, directories, or one log\n"
	"in which a memory report comes several times. Take them under the same load.\n\n"
	"Examples:\n"
	"  zorva snapshot -o A; sleep 600; zorva snapshot -o B; zorva leaks A B\n"
	"  zorva leaks monday.txt tuesday.txt wednesday.txt\n"
	"  zorva leaks A live",
	1,
	1000,
	options,
	run,
};

} // namespace zorva
