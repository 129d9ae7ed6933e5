// SPDX-License-Identifier: GPL-2.0
#include "read.h"
#include "parser.h"
#include "progress.h"
#include "source.h"

namespace zorva
{
reading read_text(std::string_view name, std::string_view text)
{
	reading from;

	parse_text(from, name, text);
	complete_last_moment(from);
	return from;
}

reading read_input(std::string_view source, const wants &what)
{
	const progress shown(source.empty() ? live_directory : source);
	reading from;

	read_source(from, source, what);
	complete_last_moment(from);
	return from;
}

} // namespace zorva
