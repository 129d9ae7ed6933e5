/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Pictures as SVG, to stand in a page: no scripts, nothing fetched, colours by
 * the page's own rules. Each is 360 units wide, which a phone shows as it is.
 */
#ifndef ZORVA_TOOL_PICTURE_H
#define ZORVA_TOOL_PICTURE_H

#include "memory.h"
#include "waits.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zorva
{

/* The most lines that a picture of growth has; each has a look of its own. */
constexpr size_t most_lines = 6;

/* A figure at each moment; the name as html() has it. */
struct picture_line {
	std::string name;
	std::vector<int64_t> values;
};

/*
 * memory_picture - areas as large as what was allocated, by component, and
 * within by place
 * @sites: by place, most bytes first
 */
std::string memory_picture(const std::vector<block_group> &sites);

/* @times: seconds; @lines: at most most_lines, sizes in bytes */
std::string growth_picture(const std::vector<uint64_t> &times,
			   const std::vector<picture_line> &lines);

/* Who waits for whom; empty when nobody does. */
std::string waits_picture(const waits &of);

} // namespace zorva

#endif
