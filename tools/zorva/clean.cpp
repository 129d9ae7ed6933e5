// SPDX-License-Identifier: GPL-2.0
#include "clean.h"

namespace zorva
{
namespace
{

bool is_digit(char c)
{
	return c >= '0' && c <= '9';
}

/* From an ESC on, how many characters belong to its sequence. */
size_t sequence_length(std::string_view text)
{
	size_t i = 2;

	if (text.size() < 2)
		return text.size();
	if (text[1] != '[')
		return 2;
	while (i < text.size() && text[i] >= 0x20 && text[i] < 0x40)
		++i;
	return i < text.size() ? i + 1 : i;
}

std::string without_sequences(std::string_view line)
{
	std::string left;

	while (!line.empty()) {
		const size_t length = line[0] == '\033' ? sequence_length(line)
							: 1;

		if (line[0] != '\033' && line[0] != '\r')
			left += line[0];
		line.remove_prefix(length);
	}
	return left;
}

} // namespace

stamp find_stamp(std::string_view line)
{
	constexpr size_t decimals = 6;

	for (size_t begin = line.find('['); begin != line.npos;
	     begin = line.find('[', begin + 1)) {
		size_t i = begin + 1;
		size_t left = decimals;

		while (i < line.size() && line[i] == ' ')
			++i;
		if (i >= line.size() || !is_digit(line[i]))
			continue;
		while (i < line.size() && is_digit(line[i]))
			++i;
		if (i >= line.size() || line[i++] != '.')
			continue;
		while (left && i < line.size() && is_digit(line[i])) {
			++i;
			--left;
		}
		if (left || i >= line.size() || line[i] != ']')
			continue;
		++i;
		return { begin, i < line.size() && line[i] == ' ' ? i + 1 : i };
	}
	return {};
}

std::string cleaned(std::string_view line)
{
	constexpr std::string_view from_user = "[U]";
	std::string left = line.find_first_of("\033\r") == line.npos
				   ? std::string(line)
				   : without_sequences(line);
	const stamp at = find_stamp(left);

	/* A loglevel may stand before the stamp. */
	if (at.found() && at.begin <= 3 &&
	    left.compare(at.end, from_user.size(), from_user) == 0) {
		size_t end = at.end + from_user.size();

		if (end < left.size() && left[end] == ' ')
			++end;
		left.erase(0, end);
	}
	return left;
}

} // namespace zorva
