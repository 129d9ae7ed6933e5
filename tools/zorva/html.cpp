// SPDX-License-Identifier: GPL-2.0
#include "html.h"

#include "print.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace zorva
{

std::string html(std::string_view text, size_t limit)
{
	return html_again(escaped(text, limit));
}

std::string html_again(std::string_view text)
{
	std::string safe;

	for (const char c : text) {
		switch (c) {
		case '&':
			safe += "&amp;";
			break;
		case '<':
			safe += "&lt;";
			break;
		case '>':
			safe += "&gt;";
			break;
		case '"':
			safe += "&quot;";
			break;
		case '\'':
			safe += "&#39;";
			break;
		default:
			safe += c;
		}
	}
	return safe;
}

std::string base64_of_hex(std::string_view hex)
{
	static constexpr char digits[] =
		"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
	std::string text;

	/* Three bytes, six digits, are four characters. */
	for (; !hex.empty();
	     hex.remove_prefix(std::min<size_t>(6, hex.size()))) {
		const size_t bytes = std::min<size_t>(6, hex.size()) / 2;
		uint32_t value = 0;

		std::from_chars(hex.data(), hex.data() + 2 * bytes, value, 16);
		value <<= 8 * (3 - bytes);
		for (size_t i = 0; i < 4; ++i)
			text += i <= bytes ? digits[value >> (18 - 6 * i) & 63]
					   : '=';
	}
	return text;
}

std::string html_of(const html_table &of)
{
	std::string text =
		"<div class=\"scroll\" role=\"region\" tabindex=\"0\" "
		"aria-label=\"";

	text += of.caption;
	text += "\">\n<table>\n<caption>";
	text += of.caption;
	text += "</caption>\n<thead><tr>";
	for (const html_column &one : of.columns)
		text += one.title.empty()
				? "<td></td>"
				: fmt::format("<th scope=\"col\"{}>{}</th>",
					      one.number ? " class=\"n\"" : "",
					      one.title);
	text += "</tr></thead>\n<tbody>\n";
	for (const auto &row : of.rows) {
		text += "<tr>";
		for (size_t i = 0; i < row.size(); ++i) {
			const html_cell &one = row[i];

			text += "<td";
			if (of.columns[i].number)
				text += fmt::format(" class=\"n\" data-v=\"{}\"",
						    one.value);
			else if (!one.look.empty())
				text += fmt::format(" class=\"{}\"", one.look);
			text += '>' + one.text + "</td>";
		}
		text += "</tr>\n";
	}
	text += "</tbody>\n</table>\n</div>\n";
	if (of.left_out)
		text += fmt::format("<p class=\"rest\">{} {} not shown.</p>\n",
				    of.left_out, of.rest);
	return text;
}

html_cell number_cell(int64_t value)
{
	return { fmt::format("{}", value), value };
}

html_cell size_cell(uint64_t bytes)
{
	return { size_text(bytes), static_cast<int64_t>(bytes) };
}

html_cell duration_cell(uint64_t seconds)
{
	return { duration_text(seconds), static_cast<int64_t>(seconds) };
}

html_cell bar_cell(uint64_t value, uint64_t most)
{
	const double part = most ? 100.0 * static_cast<double>(value) /
					    static_cast<double>(most)
				 : 0;

	return { fmt::format("<svg viewBox=\"0 0 100 8\" "
			     "preserveAspectRatio=\"none\" aria-hidden=\"true\">"
			     "<rect width=\"{:.1f}\" height=\"8\"/></svg>",
			     part),
		 0, "bar" };
}

} // namespace zorva
