// SPDX-License-Identifier: GPL-2.0
/* zorva mem: who has how much memory, by component, place, size or age. */
#include "command.h"
#include "print.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

int run(const common_options &common)
{
	reading from;

	if (!read_for(common, common.sources[0],
		      { report_kind::mem_detail, report_kind::mem }, false,
		      from))
		return exit_unreadable;

	const model &now = from.last();
	table shown = {
		{ { "COMPONENT" }, { "USED", true }, { "BLOCKS", true } }, {}
	};

	for (const component_usage &one : now.memory.components)
		shown.rows.push_back({ escaped(one.name),
				       size_text(one.current),
				       std::to_string(one.delta) });
	print(table_text(shown));
	return exit_nothing;
}

} // namespace

const command mem_command = {
	"mem",
	"who has how much memory",
	"Example:\n  zorva mem board.txt",
	0,
	1,
	nullptr,
	run,
};

} // namespace zorva
