/* SPDX-License-Identifier: GPL-2.0 */
/* Takes a line apart from its left end. */
#ifndef ZORVA_TOOL_SCAN_H
#define ZORVA_TOOL_SCAN_H

#include <charconv>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zorva
{

/*
 * Each function takes something off the rest, and is false when it is not
 * there. A number that does not fit its variable is not there, either.
 */
struct scan {
	std::string_view rest;

	/* expected: not empty; mostly its first character tells */
	bool text(std::string_view expected)
	{
		if (rest.size() < expected.size() ||
		    rest.front() != expected.front() ||
		    memcmp(rest.data(), expected.data(), expected.size()) != 0)
			return false;
		rest.remove_prefix(expected.size());
		return true;
	}

	template <std::integral Number>
	bool number(Number &to, int base = 10)
	{
		const char *const end = rest.data() + rest.size();
		const auto [next, error] =
			std::from_chars(rest.data(), end, to, base);

		if (error != std::errc())
			return false;
		rest.remove_prefix(next - rest.data());
		return true;
	}

	/* At least one blank. */
	bool blanks()
	{
		const size_t count = rest.find_first_not_of(' ');

		if (count == 0 || rest.empty())
			return false;
		rest.remove_prefix(count == rest.npos ? rest.size() : count);
		return true;
	}

	/* All before the first such text, and the text. */
	bool until(std::string_view mark, std::string_view &to)
	{
		const size_t found = rest.find(mark);

		if (found == rest.npos)
			return false;
		to = rest.substr(0, found);
		rest.remove_prefix(found + mark.size());
		return true;
	}

	bool done() const
	{
		return rest.empty();
	}
};

/*
 * "FILE, LINE" and nothing else. The file may be anything: the line begins
 * after the last comma.
 */
inline bool scan_site(std::string_view text, std::string_view &file,
		      int64_t &line)
{
	const size_t comma = text.rfind(", ");

	if (comma == text.npos)
		return false;

	scan number{ text.substr(comma + 2) };

	file = text.substr(0, comma);
	return number.number(line) && number.done();
}

/* Without blanks at its end. */
inline std::string_view trimmed(std::string_view text)
{
	while (text.ends_with(' '))
		text.remove_suffix(1);
	return text;
}

} // namespace zorva

#endif
