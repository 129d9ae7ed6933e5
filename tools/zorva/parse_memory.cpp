// SPDX-License-Identifier: GPL-2.0
/* zorva.mem: a row for each component that has memory. */
#include "parse.h"
#include "scan.h"

namespace zorva
{
namespace
{

constexpr std::string_view head_1 =
	"           Curr        Max         Alloc       Free";
constexpr std::string_view head_2 =
	"Component  Usage       Usage       Count       Count       Delta";
constexpr std::string_view rule =
	"===================================================================";

bool scan_row(std::string_view text, component_usage &row)
{
	scan in{ text };
	std::string_view name;

	if (!in.until(" ", name) || name.empty())
		return false;
	row.name = name;
	return in.blanks() && in.number(row.current) && in.blanks() &&
	       in.number(row.max) && in.blanks() && in.number(row.allocs) &&
	       in.blanks() && in.number(row.frees) && in.blanks() &&
	       in.text("+") && in.number(row.delta) && trimmed(in.rest).empty();
}

/* A row that a number spoils is still known by its sign. */
bool looks_like_row(std::string_view text)
{
	const size_t plus = text.rfind(" +");

	return plus != text.npos && text[0] != ' ' &&
	       text.find_first_not_of("0123456789 ", plus + 2) == text.npos;
}

/* Most switches have no more. */
constexpr size_t mostly = 32;

class memory_parser final : public report_parser {
public:
	memory_parser()
	{
		table_.components.reserve(mostly);
	}

	taken line(std::string_view text, place at) override
	{
		const std::string_view shown = trimmed(text);
		component_usage row;

		if (shown == head_1 || shown == head_2 || shown == rule ||
		    shown.empty())
			return taken::yes;
		if (!scan_row(text, row))
			return looks_like_row(text) ? taken::bad : taken::no;
		row.at = at;
		table_.components.push_back(std::move(row));
		return taken::yes;
	}

	void finish(model &into, const report_state &state, notes &) override
	{
		if (!may_replace(into.memory, state))
			return;
		into.memory = std::move(table_);
		into.memory.state = state;
	}

private:
	memory_table table_;
};

} // namespace

std::unique_ptr<report_parser> make_memory_parser()
{
	return std::make_unique<memory_parser>();
}

} // namespace zorva
