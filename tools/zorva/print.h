/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How things are shown. What was read of a switch is not trusted: every text
 * of it passes through one of the first three functions.
 */
#ifndef ZORVA_TOOL_PRINT_H
#define ZORVA_TOOL_PRINT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zorva
{

/*
 * For a terminal: control characters, what is no UTF-8, and characters that
 * turn the direction of writing become \xNN or \u{NNNN}, and a backslash \\.
 * A text of more than @limit characters is cut, and ends in "...".
 */
std::string escaped(std::string_view text, size_t limit = 80);

/* For DOT: the same in double quotes, with quotes and backslashes escaped. */
std::string dot_quoted(std::string_view text);

/* For JSON: valid UTF-8; bytes that are none become \xNN. */
std::string json_text(std::string_view text);

/* How the results are to look; set once by main(). */
struct appearance {
	bool colours = false;
	bool exact_bytes = false;
};
extern appearance look;

enum class style : uint8_t {
	plain,
	bold,
	dim,
	bad,
	warn,
	good
};

/* With colours, if they are on. */
std::string styled(style how, std::string_view text);

/* "812 B", "3.7 KiB"; with --bytes the number alone. */
std::string size_text(uint64_t bytes);
/* The same with a sign. */
std::string growth_text(int64_t bytes);

/* "45 s", "12 min", "3 h 5 min", "2 d 4 h". */
std::string duration_text(uint64_t seconds);

/* "1 block", "2 blocks". */
std::string count_text(uint64_t count, std::string_view one,
		       std::string_view many = {});

/*
 * A table. Cells are shown as they are, so what was read goes in escaped; its
 * width is counted in characters.
 */
struct column {
	std::string title;
	bool right = false; /* aligned, for numbers */
};

struct cell {
	std::string text;
	style how = style::plain;

	cell(std::string of = {}, style in = style::plain)
		: text(std::move(of)), how(in)
	{
	}
	cell(const char *of) : text(of)
	{
	}
};

struct table {
	std::vector<column> columns;
	std::vector<std::vector<cell>> rows;
};

std::string table_text(const table &of);

/* To standard output; the program ends when nobody reads it any more. */
void print(std::string_view text);
/* "zorva: TEXT", to standard error. */
void complain(std::string_view text);

} // namespace zorva

#endif
