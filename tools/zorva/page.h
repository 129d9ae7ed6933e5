/* SPDX-License-Identifier: GPL-2.0 */
/* One page that says all of a switch, to be handed on as a file. */
#ifndef ZORVA_TOOL_PAGE_H
#define ZORVA_TOOL_PAGE_H

#include "check.h"
#include "read.h"
#include "waits.h"

#include <string>
#include <vector>

namespace zorva
{

struct page_content {
	std::vector<std::string> sources; /* as they were given */
	/* Of all sources, oldest first; at least one. */
	std::vector<const model *> moments;
	const waits *waiting = nullptr; /* of the last moment */
	std::vector<problem> problems;
	std::vector<const reading *> readings;
};

/*
 * page_text - the page
 *
 * It has its styles, its script and its pictures in it, fetches nothing, and
 * says in its first line what is wrong or that nothing is. Lists that would be
 * too long to read are cut, with a line that says how much is left out.
 */
std::string page_text(const page_content &of);

} // namespace zorva

#endif
