/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The parts of a page. What was read of a switch is not trusted: html() makes
 * a text of any text, and all else here expects what html() has made.
 */
#ifndef ZORVA_TOOL_HTML_H
#define ZORVA_TOOL_HTML_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zorva
{

/*
 * As print.h's escaped(), and without a meaning of its own in HTML, in the
 * quotes of an attribute, and in SVG.
 */
std::string html(std::string_view text, size_t limit = 80);

/* The same of a text that is escaped already. */
std::string html_again(std::string_view text);

/* "3q2+7w==" of "deadbeef": as a page's policy names a hash. */
std::string base64_of_hex(std::string_view hex);

struct html_column {
	std::string title;
	bool number = false; /* aligned, and sorted as one */
};

struct html_cell {
	std::string text;	    /* HTML */
	int64_t value = 0;	    /* what a number is sorted by */
	std::string_view look = {}; /* "bad", "warn", "good", "bar" */
};

/* A table that can be sorted and filtered. */
struct html_table {
	std::string_view caption;
	std::vector<html_column> columns;
	std::vector<std::vector<html_cell>> rows;
	size_t left_out = 0;		/* rows that are not shown */
	std::string_view rest = "more"; /* what they are: "more places" */
};

std::string html_of(const html_table &of);

/* A cell with a number, as it is. */
html_cell number_cell(int64_t value);
/* A cell with a size in bytes. */
html_cell size_cell(uint64_t bytes);
/* A cell with a time in seconds. */
html_cell duration_cell(uint64_t seconds);
/* A bar: how much of the most there is. */
html_cell bar_cell(uint64_t value, uint64_t most);

} // namespace zorva

#endif
