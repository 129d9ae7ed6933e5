// SPDX-License-Identifier: GPL-2.0
#include "print.h"
#include "plain.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <unistd.h>

namespace zorva
{

appearance look;

namespace
{

/* A character of UTF-8: how many bytes, 0 when they are none, and its value. */
struct character {
	size_t bytes = 0;
	uint32_t value = 0;
};

character character_at(std::string_view text)
{
	const auto byte = [&](size_t i) {
		return static_cast<unsigned char>(text[i]);
	};
	const unsigned char first = byte(0);
	static constexpr uint32_t least[] = { 0, 0, 0x80, 0x800, 0x10000 };
	size_t bytes;

	if (first < 0x80)
		return { 1, first };
	if (first >= 0xc2 && first < 0xe0)
		bytes = 2;
	else if (first >= 0xe0 && first < 0xf0)
		bytes = 3;
	else if (first >= 0xf0 && first < 0xf5)
		bytes = 4;
	else
		return {};
	if (text.size() < bytes)
		return {};

	uint32_t value = first & (0xff >> (bytes + 1));

	for (size_t i = 1; i < bytes; ++i) {
		if ((byte(i) & 0xc0) != 0x80)
			return {};
		value = value << 6 | (byte(i) & 0x3f);
	}
	if (value < least[bytes] || value > 0x10ffff ||
	    (value >= 0xd800 && value < 0xe000))
		return {};
	return { bytes, value };
}

/* What would move the cursor, hide, or show text in another order. */
bool is_unsafe(uint32_t value)
{
	return value < 0x20 || (value >= 0x7f && value < 0xa0) ||
	       value == 0xad || value == 0x61c ||
	       (value >= 0x200b && value <= 0x200f) ||
	       (value >= 0x2028 && value <= 0x202e) ||
	       (value >= 0x2060 && value <= 0x206f) || value == 0xfeff ||
	       (value >= 0xfff0 && value <= 0xfffb) ||
	       (value >= 0xe0000 && value <= 0xe0fff);
}

void append_safe(std::string &to, std::string_view text, const character &c)
{
	const auto byte = static_cast<unsigned char>(text[0]);

	if (!c.bytes || (c.bytes == 1 && is_unsafe(c.value)))
		fmt::format_to(std::back_inserter(to), "\\x{:02x}", byte);
	else if (is_unsafe(c.value))
		fmt::format_to(std::back_inserter(to), "\\u{{{:x}}}", c.value);
	else if (c.value == '\\')
		to += "\\\\";
	else
		to += text.substr(0, c.bytes);
}

/* How many columns a safe text takes, if each character takes one. */
size_t width_of(std::string_view text)
{
	size_t width = 0;

	for (const char c : text)
		width += (c & 0xc0) != 0x80;
	return width;
}

/* As much of it as standard output takes; what it has not stays. */
void write_directly(std::string_view &text)
{
	while (!text.empty()) {
		const ssize_t put =
			write(STDOUT_FILENO, text.data(), text.size());

		if (put < 0 && errno == EINTR)
			continue;
		if (put <= 0)
			return;
		text.remove_prefix(static_cast<size_t>(put));
	}
}

const char *colour_of(style how)
{
	switch (how) {
	case style::plain:
		return "";
	case style::bold:
		return "\033[1m";
	case style::dim:
		return "\033[2m";
	case style::bad:
		return "\033[1;31m";
	case style::warn:
		return "\033[33m";
	case style::good:
		return "\033[32m";
	}
	return "";
}

} // namespace

std::string escaped(std::string_view text, size_t limit)
{
	if (is_shown_as_it_is(text, limit))
		return std::string(text);

	std::string safe;
	size_t shown = 0;

	while (!text.empty()) {
		const character c = character_at(text);

		if (++shown > limit)
			return safe + "...";
		append_safe(safe, text, c);
		text.remove_prefix(c.bytes ? c.bytes : 1);
	}
	return safe;
}

std::string dot_quoted(std::string_view text)
{
	std::string quoted = "\"";

	for (const char c : escaped(text)) {
		if (c == '"' || c == '\\')
			quoted += '\\';
		quoted += c;
	}
	return quoted + "\"";
}

std::string json_text(std::string_view text)
{
	std::string valid;

	while (!text.empty()) {
		const character c = character_at(text);

		if (c.bytes)
			valid += text.substr(0, c.bytes);
		else
			append_safe(valid, text, c);
		text.remove_prefix(c.bytes ? c.bytes : 1);
	}
	return valid;
}

std::string styled(style how, std::string_view text)
{
	if (!look.colours || how == style::plain || text.empty())
		return std::string(text);
	return fmt::format("{}{}\033[0m", colour_of(how), text);
}

std::string size_text(uint64_t bytes)
{
	static constexpr std::array units = { "B",   "KiB", "MiB", "GiB",
					      "TiB", "PiB", "EiB" };
	uint64_t tenths = bytes * 10;
	size_t unit = 0;

	if (look.exact_bytes)
		return fmt::format("{}", bytes);
	if (bytes < 1024)
		return fmt::format("{} B", bytes);
	if (bytes > UINT64_MAX / 10) {
		tenths = bytes / 1024 * 10;
		unit = 1;
	}
	/* Rounded, 1023.95 would be shown as 1024.0. */
	while (tenths >= 10239) {
		tenths = tenths / 1024 + (tenths % 1024 >= 512);
		++unit;
	}
	return fmt::format("{}.{} {}", tenths / 10, tenths % 10, units[unit]);
}

std::string growth_text(int64_t bytes)
{
	const auto size = static_cast<uint64_t>(bytes);

	return bytes < 0 ? "-" + size_text(-size) : "+" + size_text(size);
}

std::string duration_text(uint64_t seconds)
{
	const uint64_t minutes = seconds / 60;
	const uint64_t hours = minutes / 60;
	const uint64_t days = hours / 24;

	if (!minutes)
		return fmt::format("{} s", seconds);
	if (!hours)
		return seconds % 60 && minutes < 10
			       ? fmt::format("{} min {} s", minutes,
					     seconds % 60)
			       : fmt::format("{} min", minutes);
	if (!days)
		return minutes % 60
			       ? fmt::format("{} h {} min", hours, minutes % 60)
			       : fmt::format("{} h", hours);
	return hours % 24 ? fmt::format("{} d {} h", days, hours % 24)
			  : fmt::format("{} d", days);
}

std::string count_text(uint64_t count, std::string_view one,
		       std::string_view many)
{
	if (count == 1)
		return fmt::format("1 {}", one);
	if (!many.empty())
		return fmt::format("{} {}", count, many);
	return fmt::format("{} {}s", count, one);
}

std::string table_text(const table &of)
{
	std::vector<size_t> widths;
	std::string text;

	for (const column &c : of.columns)
		widths.push_back(width_of(c.title));
	for (const auto &row : of.rows)
		for (size_t i = 0; i < row.size() && i < widths.size(); ++i)
			widths[i] = std::max(widths[i], width_of(row[i].text));

	const auto append = [&](const auto &row, auto &&shown, auto &&plain) {
		std::string gap;

		for (size_t i = 0; i < row.size() && i < widths.size(); ++i) {
			const std::string pad(widths[i] -
						      width_of(plain(row[i])),
					      ' ');

			text += gap;
			gap = "  ";
			if (of.columns[i].right)
				text += pad;
			text += shown(row[i]);
			/* Blanks before the next cell, none at the end. */
			if (!of.columns[i].right)
				gap = pad + gap;
		}
		/* A column may be empty at its end. */
		while (text.ends_with(' '))
			text.pop_back();
		text += '\n';
	};

	append(
		of.columns,
		[](const column &c) {
			return styled(style::dim, c.title);
		},
		[](const column &c) {
			return c.title;
		});
	for (const auto &row : of.rows)
		append(
			row,
			[](const cell &c) {
				return styled(c.how, c.text);
			},
			[](const cell &c) {
				return c.text;
			});
	return text;
}

void print(std::string_view text)
{
	/* It would go through the buffer in pieces. */
	if (text.size() >= BUFSIZ / 2 && fflush(stdout) == 0)
		write_directly(text);
	if (fwrite(text.data(), 1, text.size(), stdout) == text.size())
		return;
	if (errno == EPIPE)
		_Exit(0);
	complain(fmt::format("standard output: {}", strerror(errno)));
	_Exit(3);
}

void complain(std::string_view text)
{
	fflush(stdout);
	fmt::print(stderr, "zorva: {}\n", text);
}

} // namespace zorva
