/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Finds the reports in a text, whatever stands between and inside of them, and
 * hands their lines to the parsers of parse.h.
 */
#ifndef ZORVA_TOOL_PARSER_H
#define ZORVA_TOOL_PARSER_H

#include "parse.h"

#include <string>

namespace zorva
{

/*
 * The text of a file under /proc, of which the path says what it is. Paths
 * that nobody wants are ignored.
 */
void parse_file(reading &into, std::string_view path, std::string_view text);

/* A text that may be anything: it has to say itself what is in it. */
void parse_text(reading &into, std::string_view name, std::string_view text);

/* After the last text: the last moment gets what only earlier ones have. */
void complete_last_moment(reading &into);

/* Nothing was read into it. */
bool is_empty(const model &of);

} // namespace zorva

#endif
