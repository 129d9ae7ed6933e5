// SPDX-License-Identifier: GPL-2.0
/* zorva mem: who has how much memory, by component, place, size or age. */
#include "command.h"
#include "memory.h"
#include "print.h"
#include "units.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

std::string by = "component";
std::string older_than;
uint64_t top;

std::vector<option> options()
{
	return {
		{ "--by",
		  "WHAT",
		  "groups: component, site, size or age",
		  &by,
		  { "component", "site", "size", "age" } },
		{ "--older-than", "AGE",
		  "only blocks of this age and more: 90, 90s, 10m, 2h, 1d",
		  &older_than },
		{ "-n,--top", "N", "only the N largest groups", &top },
	};
}

grouping wanted_grouping()
{
	if (by == "site")
		return grouping::by_site;
	if (by == "size")
		return grouping::by_size;
	return by == "age" ? grouping::by_age : grouping::by_component;
}

std::string site_text(const site &from)
{
	return fmt::format("{}:{}", escaped(from.file), from.line);
}

std::string age_range(const block_group &one)
{
	if (one.high == UINT64_MAX)
		return duration_text(one.low) + " and more";
	return fmt::format("{} to {}", duration_text(one.low),
			   duration_text(one.high));
}

/* What the last line says of the kernel. */
void print_available(const model &now)
{
	if (const auto left = available_memory(now))
		print(fmt::format("\nThe kernel has {} left.\n",
				  size_text(*left)));
}

void print_more(size_t shown, size_t all)
{
	if (shown < all)
		print(fmt::format("... and {} more\n", all - shown));
}

json json_kernel(const model &now)
{
	json kernel = json::object();

	if (const auto left = available_memory(now))
		kernel["available_bytes"] = *left;
	if (const auto time = time_of(now))
		kernel["time_seconds"] = *time;
	return kernel;
}

/* The components' accounts. */
int run_table(const common_options &common, const reading &from)
{
	const model &now = from.last();
	const auto &all = usage_of(now);
	std::vector<const component_usage *> rows;
	uint64_t bytes = 0, blocks = 0;

	for (const component_usage &one : all) {
		rows.push_back(&one);
		bytes += one.current;
		blocks += one.delta;
	}
	std::stable_sort(rows.begin(), rows.end(), [](auto *a, auto *b) {
		return a->current > b->current;
	});
	if (top && top < rows.size())
		rows.resize(top);

	if (common.json) {
		json out = json_head("mem", from);

		out["by"] = "component";
		out["kernel"] = json_kernel(now);
		out["total"] = { { "bytes", bytes }, { "blocks", blocks } };
		out["groups"] = json::array();
		for (const auto *one : rows)
			out["groups"].push_back(
				{ { "component", json_text(one->name) },
				  { "bytes", one->current },
				  { "max_bytes", one->max },
				  { "blocks", one->delta },
				  { "allocations", one->allocs },
				  { "frees", one->frees },
				  { "at", json_place(from, one->at) } });
		print_json(out);
		return exit_nothing;
	}

	table shown = { { { "COMPONENT" },
			  { "USED", true },
			  { "MOST", true },
			  { "BLOCKS", true },
			  { "ALLOCATED", true },
			  { "FREED", true } },
			{} };

	for (const auto *one : rows)
		shown.rows.push_back(
			{ escaped(one->name), size_text(one->current),
			  size_text(one->max), fmt::format("{}", one->delta),
			  fmt::format("{}", one->allocs),
			  fmt::format("{}", one->frees) });
	shown.rows.push_back({ { "all", style::bold },
			       { size_text(bytes), style::bold },
			       "",
			       { fmt::format("{}", blocks), style::bold } });
	print(table_text(shown));
	print_more(rows.size(), all.size());
	print_available(now);
	return exit_nothing;
}

json json_group(const block_group &one, grouping how)
{
	json out = json::object();

	if (how == grouping::by_component || how == grouping::by_site)
		out["component"] = json_text(one.component);
	if (how == grouping::by_site) {
		out["file"] = json_text(one.from.file);
		out["line"] = one.from.line;
	}
	if (how == grouping::by_size)
		out["size_bytes"] = one.low;
	if (how == grouping::by_age) {
		out["from_seconds"] = one.low;
		if (one.high != UINT64_MAX)
			out["to_seconds"] = one.high;
	}
	out["bytes"] = one.bytes;
	out["blocks"] = one.blocks;
	out["oldest_seconds"] = one.oldest;
	out["youngest_seconds"] = one.youngest;
	return out;
}

std::vector<cell> group_row(const block_group &one, grouping how)
{
	std::vector<cell> row;

	switch (how) {
	case grouping::by_component:
		row = { escaped(one.component) };
		break;
	case grouping::by_site:
		row = { escaped(one.component), site_text(one.from) };
		break;
	case grouping::by_size:
		row = { size_text(one.low) };
		break;
	case grouping::by_age:
		row = { age_range(one) };
		break;
	}
	row.insert(row.end(),
		   { size_text(one.bytes), fmt::format("{}", one.blocks),
		     duration_text(one.oldest), duration_text(one.youngest) });
	return row;
}

/* The blocks themselves. */
int run_blocks(const common_options &common, const reading &from, uint64_t age)
{
	const grouping how = wanted_grouping();
	const memory_detail &blocks = from.last().blocks;
	const std::vector<block_group> all = group_blocks(blocks, how, age);
	const size_t count = top && top < all.size() ? top : all.size();
	uint64_t bytes = 0, number = 0;

	for (const block_group &one : all) {
		bytes += one.bytes;
		number += one.blocks;
	}

	if (common.json) {
		json out = json_head("mem", from);

		out["by"] = by;
		if (age)
			out["older_than_seconds"] = age;
		out["kernel"] = json_kernel(from.last());
		out["total"] = { { "bytes", bytes },
				 { "blocks", number },
				 { "torn_blocks", blocks.torn.size() } };
		out["groups"] = json::array();
		for (size_t i = 0; i < count; ++i)
			out["groups"].push_back(json_group(all[i], how));
		print_json(out);
		return exit_nothing;
	}

	table shown;

	switch (how) {
	case grouping::by_component:
		shown.columns = { { "COMPONENT" } };
		break;
	case grouping::by_site:
		shown.columns = { { "COMPONENT" }, { "ALLOCATED AT" } };
		break;
	case grouping::by_size:
		shown.columns = { { "SIZE", true } };
		break;
	case grouping::by_age:
		shown.columns = { { "AGE" } };
		break;
	}
	shown.columns.insert(shown.columns.end(), { { "USED", true },
						    { "BLOCKS", true },
						    { "OLDEST", true },
						    { "YOUNGEST", true } });
	for (size_t i = 0; i < count; ++i)
		shown.rows.push_back(group_row(all[i], how));
	print(table_text(shown));
	print_more(count, all.size());
	print(fmt::format("\n{} in {}{}.\n", size_text(bytes),
			  count_text(number, "block"),
			  age ? ", all of " + duration_text(age) + " or more"
			      : ""));
	if (!blocks.torn.empty())
		print(fmt::format("{} not counted; see: zorva torn\n",
				  count_text(blocks.torn.size(),
					     "damaged block is",
					     "damaged blocks are")));
	print_available(from.last());
	return exit_nothing;
}

int run(const common_options &common)
{
	reading from;
	uint64_t age = 0;

	if (!older_than.empty() && !seconds_of(older_than, age)) {
		complain(
			fmt::format("--older-than {}: no time such as 90, 10m, 2h or 1d",
				    escaped(older_than)));
		return exit_usage;
	}

	/* The components alone need no look at each block, which is dear. */
	const bool details = by != "component" || age;

	if (!read_for(common, common.sources[0],
		      details ? std::vector{ report_kind::mem_detail }
			      : std::vector{ report_kind::mem,
					     report_kind::mem_detail },
		      false, from))
		return exit_unreadable;
	return details ? run_blocks(common, from, age)
		       : run_table(common, from);
}

} // namespace

const command mem_command = {
	"mem",
	"who has how much memory",
	"Sizes are what owners asked for; each block costs 56 bytes more.\n\n"
	"Examples:\n"
	"  zorva mem                               the components of this machine\n"
	"  zorva mem --by site --top 10 board.txt  who allocates most, by file and line\n"
	"  zorva mem --by site --older-than 1h     what has stayed for an hour",
	0,
	1,
	options,
	run,
};

} // namespace zorva
