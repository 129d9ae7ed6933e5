// SPDX-License-Identifier: GPL-2.0
/* zorva torn: damaged blocks, and who may have damaged them. */
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

std::string site_text(const memory_detail &of, uint32_t number)
{
	return fmt::format("{}:{}", escaped(of.sites[number].file),
			   of.sites[number].line);
}

const std::string &owner(const memory_detail &of, uint16_t component)
{
	return of.components[component].name;
}

/* What the neighbour says about who did it. */
std::string verdict(const memory_detail &of, const damage &one)
{
	if (!one.adjacent)
		return fmt::
			format("No block lies right below it, so look at who writes into the blocks of {} first.",
			       site_text(of, one.torn->site));
	if (one.torn_below)
		return fmt::
			format("The block right below is damaged as well: it was probably overrun, through both. Look at who writes into the blocks of {}.",
			       site_text(of, one.torn_below->site));
	return fmt::
		format("Either it was overrun itself, or the block right below was, and it is the victim: look at who writes into the blocks of {}, then of {}.",
		       site_text(of, one.torn->site),
		       site_text(of, one.below->site));
}

void print_damage(const reading &from, const damage &one)
{
	const memory_detail &of = from.last().blocks;

	print(styled(style::bad,
		     fmt::format("Block of {}, allocated at {}",
				 escaped(owner(of, one.torn->component)),
				 site_text(of, one.torn->site))) +
	      "\n");
	print(fmt::format("  header    {:x} (its bytes begin at {:x}); in {}\n",
			  one.torn->header, one.torn->header + user_offset,
			  escaped(place_text(from, one.torn->at), 200)));
	if (one.below)
		print(fmt::format("  below it  {:x}, {}, of {}, allocated at {}; its end is {} bytes below the header{}\n",
				  one.below->address,
				  count_text(one.below->size, "byte"),
				  escaped(owner(of, one.below->component)),
				  site_text(of, one.below->site),
				  static_cast<int64_t>(one.torn->header -
						       one.below->address -
						       one.below->size),
				  one.adjacent ? ""
					       : ", so not its neighbour"));
	else if (one.torn_below)
		print(fmt::format("  below it  header {:x}, damaged as well, of {}, allocated at {}; {} bytes from header to header\n",
				  one.torn_below->header,
				  escaped(owner(of, one.torn_below->component)),
				  site_text(of, one.torn_below->site),
				  one.distance));
	else
		print("  below it  no block of this module\n");
	print("  " + verdict(of, one) + "\n\n");
}

json json_damage(const reading &from, const damage &one)
{
	const memory_detail &of = from.last().blocks;
	json out = {
		{ "component", json_text(owner(of, one.torn->component)) },
		{ "file", json_text(of.sites[one.torn->site].file) },
		{ "line", of.sites[one.torn->site].line },
		{ "header_address", one.torn->header },
		{ "at", json_place(from, one.torn->at) },
	};

	if (one.below || one.torn_below) {
		const uint16_t component = one.below
						   ? one.below->component
						   : one.torn_below->component;
		const site &place = of.sites[one.below ? one.below->site
						       : one.torn_below->site];
		json below = {
			{ "component", json_text(owner(of, component)) },
			{ "file", json_text(place.file) },
			{ "line", place.line },
			{ "header_address", one.torn->header - one.distance },
			{ "distance_bytes", one.distance },
			{ "adjacent", one.adjacent },
			{ "torn", one.torn_below != nullptr },
		};

		if (one.below)
			below["size_bytes"] = one.below->size;
		out["below"] = std::move(below);
	}
	return out;
}

int run(const common_options &common)
{
	reading from;

	if (!read_for(common, common.sources[0], { report_kind::mem_detail },
		      false, from))
		return exit_unreadable;

	const memory_detail &of = from.last().blocks;
	const std::vector<damage> found = find_damage(of);
	const std::vector<mismatch> differing = find_mismatches(of);
	const int status = found.empty() && differing.empty() ? exit_nothing
							      : exit_found;

	if (common.json) {
		json out = json_head("torn", from);

		out["blocks"] = of.blocks.size() + of.torn.size();
		out["torn"] = json::array();
		for (const damage &one : found)
			out["torn"].push_back(json_damage(from, one));
		out["miscounted"] = json::array();
		for (const mismatch &one : differing)
			out["miscounted"].push_back(
				{ { "component",
				    json_text(one.component->name) },
				  { "counted", one.component->delta },
				  { "listed", one.listed },
				  { "at",
				    json_place(from, one.component->at) } });
		print_json(out);
		return status;
	}

	for (const damage &one : found)
		print_damage(from, one);
	if (!found.empty() &&
	    of.components.size() < from.last().memory.components.size())
		print("The filter of zorva.mem.detail was set: blocks of other components may lie between.\n\n");
	for (const mismatch &one : differing)
		print(styled(style::bad,
			     fmt::format("{}: {} counted, {} listed",
					 escaped(one.component->name),
					 count_text(one.component->delta,
						    "block is", "blocks are"),
					 one.listed)) +
		      fmt::format("\n  in {}: a header was overwritten together with its owner.\n  Look at who writes into the block below the one that is missing.\n\n",
				  escaped(place_text(from, one.component->at),
					  200)));
	print(status == exit_nothing
		      ? fmt::format("No damage in {}.\n",
				    count_text(of.blocks.size(), "block"))
		      : fmt::format("{} of {} damaged.\n", of.torn.size(),
				    count_text(of.blocks.size() + of.torn.size(),
					       "block")));
	return status;
}

} // namespace

const command torn_command = {
	"torn",
	"damaged blocks, and who may have damaged them",
	"The report does not say whether a block's own end or its header was hit. For\n"
	"each damaged block this shows the one below it in memory, which is the first to\n"
	"suspect when it was the header.\n\n"
	"Examples:\n"
	"  zorva torn\n"
	"  zorva torn console.log",
	0,
	1,
	nullptr,
	run,
};

} // namespace zorva
