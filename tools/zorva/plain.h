/* SPDX-License-Identifier: GPL-2.0 */
/* Which texts are shown as they are: nearly all names. */
#ifndef ZORVA_TOOL_PLAIN_H
#define ZORVA_TOOL_PLAIN_H

#include <algorithm>
#include <string_view>

namespace zorva
{

inline bool is_plain(char c)
{
	return c >= ' ' && c < 0x7f && c != '\\';
}

/* Whether print.h's escaped() changes nothing in it. */
inline bool is_shown_as_it_is(std::string_view text, size_t limit = 80)
{
	return text.size() <= limit &&
	       std::all_of(text.begin(), text.end(), is_plain);
}

} // namespace zorva

#endif
