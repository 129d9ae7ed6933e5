// SPDX-License-Identifier: GPL-2.0
#include "picture.h"

#include "html.h"
#include "print.h"

#include <algorithm>
#include <fmt/format.h>

namespace zorva
{
namespace
{

constexpr double width = 360;
constexpr double map_height = 200;
constexpr double chart_height = 190;

/* About what a character takes, of a text of this size. */
constexpr double letter = 0.56;

struct area {
	double x, y, wide, high;
};

/* How far the worst of such areas in a row is from a square. */
double worst(const std::vector<double> &row, double sum, double side)
{
	double most = 0;

	for (const double one : row)
		most = std::max({ most, side * side * one / (sum * sum),
				  sum * sum / (side * side * one) });
	return most;
}

/*
 * Areas that fill one, as square as they can be; their sizes come largest
 * first.
 */
std::vector<area> fill(area in, std::vector<double> sizes)
{
	std::vector<area> made;
	double all = 0;

	for (const double one : sizes)
		all += one;
	for (double &one : sizes)
		one *= in.wide * in.high / all;
	for (size_t i = 0; i < sizes.size();) {
		const double side = std::min(in.wide, in.high);
		std::vector<double> row = { sizes[i] };
		double sum = sizes[i];

		while (++i < sizes.size()) {
			std::vector<double> longer = row;

			longer.push_back(sizes[i]);
			if (worst(longer, sum + sizes[i], side) >
			    worst(row, sum, side))
				break;
			row = std::move(longer);
			sum += sizes[i];
		}

		const bool across = in.wide >= in.high;
		const double deep = sum / side;
		double at = 0;

		for (const double one : row) {
			const double length = one / deep;

			made.push_back(
				across ? area{ in.x, in.y + at, deep, length }
				       : area{ in.x + at, in.y, length, deep });
			at += length;
		}
		if (across) {
			in.x += deep;
			in.wide -= deep;
		} else {
			in.y += deep;
			in.high -= deep;
		}
	}
	return made;
}

/* More places of one owner are too small to be seen: they are one area. */
constexpr size_t most_places = 40;

struct owner {
	std::string name;
	uint64_t bytes = 0;
	std::vector<const block_group *> sites;
	uint64_t other_bytes = 0;
	size_t others = 0;
};

std::vector<owner> owners_of(const std::vector<block_group> &sites)
{
	std::vector<owner> owners;

	for (const block_group &one : sites) {
		auto at = std::find_if(owners.begin(), owners.end(),
				       [&](const owner &its) {
					       return its.name == one.component;
				       });

		if (!one.bytes)
			continue;
		if (at == owners.end())
			at = owners.insert(at, { one.component, 0, {}, 0, 0 });
		at->bytes += one.bytes;
		if (at->sites.size() < most_places) {
			at->sites.push_back(&one);
		} else {
			at->other_bytes += one.bytes;
			++at->others;
		}
	}
	std::stable_sort(owners.begin(), owners.end(),
			 [](const owner &a, const owner &b) {
				 return a.bytes > b.bytes;
			 });
	return owners;
}

/* A text, if there is room for it. */
void write_in(std::string &to, const area &in, const std::string &text,
	      double size, double at, const char *look)
{
	const double needs = letter * size * static_cast<double>(text.size());

	if (needs + 6 > in.wide || at + 3 > in.high)
		return;
	to += fmt::format("<text class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\">{}"
			  "</text>",
			  look, in.x + 3, in.y + at, html(text));
}

/* Too small to be seen, and many of them. */
bool is_speck(const area &one)
{
	return one.wide < 1.5 || one.high < 1.5;
}

void draw_owner(std::string &to, const owner &one, const area &in, size_t nr)
{
	constexpr double title = 13;
	std::vector<double> sizes;
	area rest = in;
	size_t i = 0;

	to += fmt::format("<g class=\"c{}\"><title>{}: {}</title>"
			  "<rect class=\"owner\" x=\"{:.1f}\" y=\"{:.1f}\" "
			  "width=\"{:.1f}\" height=\"{:.1f}\"/>",
			  nr % 6, html(one.name), size_text(one.bytes), in.x,
			  in.y, in.wide, in.high);
	write_in(to, in, one.name, 11, 10.5, "name");
	if (in.high > 2 * title) {
		rest.y += title;
		rest.high -= title;
	}
	for (const block_group *its : one.sites)
		sizes.push_back(static_cast<double>(its->bytes));
	if (one.others)
		sizes.push_back(static_cast<double>(one.other_bytes));
	for (const area &its : fill(rest, std::move(sizes))) {
		/* The last one is what the others have. */
		static const block_group none;
		const bool last = i >= one.sites.size();
		const block_group &group = last ? none : *one.sites[i];
		const std::string place =
			last ? fmt::format("{} more places", one.others)
			     : fmt::format("{}:{}", group.from.file,
					   group.from.line);

		++i;
		if (is_speck(its))
			continue;
		to += fmt::format("<g><title>{} {}: {}</title>"
				  "<rect x=\"{:.1f}\" y=\"{:.1f}\" "
				  "width=\"{:.1f}\" height=\"{:.1f}\"/>",
				  html(one.name), html(place),
				  size_text(last ? one.other_bytes
						 : group.bytes),
				  its.x, its.y, its.wide, its.high);
		if (rest.y > in.y)
			write_in(to, its, place, 9, 10, "place");
		to += "</g>";
	}
	to += "</g>\n";
}

/* A round figure that is not less. */
int64_t round_up(int64_t value)
{
	int64_t step = 64;

	while (step < value && step < INT64_MAX / 4)
		step *= 2;
	/* Between two powers there is a half. */
	return step / 4 * 3 >= value ? step / 4 * 3 : step;
}

std::string bytes_text(int64_t bytes)
{
	return bytes ? growth_text(bytes) : "0";
}

} // namespace

std::string memory_picture(const std::vector<block_group> &sites)
{
	const std::vector<owner> owners = owners_of(sites);
	std::vector<double> sizes;
	std::string text;
	size_t i = 0;

	for (const owner &one : owners)
		sizes.push_back(static_cast<double>(one.bytes));
	if (sizes.empty())
		return "";
	text = fmt::format("<svg class=\"map\" viewBox=\"0 0 {} {}\" "
			   "role=\"img\" aria-label=\"Memory by component and "
			   "place; the tables below have the same figures\">\n",
			   width, map_height);
	for (const area &in : fill({ 0, 0, width, map_height }, sizes)) {
		if (!is_speck(in))
			draw_owner(text, owners[i], in, i);
		++i;
	}
	return text + "</svg>\n";
}

std::string growth_picture(const std::vector<uint64_t> &times,
			   const std::vector<picture_line> &lines)
{
	constexpr double left = 58, right = 350, top = 10;
	constexpr double bottom = chart_height - 22;
	int64_t low = 0, high = 0;
	std::string text;

	if (times.size() < 2 || times.back() <= times.front())
		return "";
	for (const picture_line &one : lines)
		for (const int64_t value : one.values) {
			low = std::min(low, value);
			high = std::max(high, value);
		}
	if (high || !low)
		high = round_up(high);
	if (low)
		low = -round_up(-low);

	const auto x = [&](uint64_t time) {
		return left +
		       (right - left) *
			       static_cast<double>(time - times.front()) /
			       static_cast<double>(times.back() -
						   times.front());
	};
	const auto y = [&](int64_t value) {
		return bottom - (bottom - top) *
					static_cast<double>(value - low) /
					static_cast<double>(high - low);
	};

	text = fmt::format("<svg class=\"chart\" viewBox=\"0 0 {} {}\" "
			   "role=\"img\" aria-label=\"Growth by component; the "
			   "table below has the figures\">\n",
			   width, chart_height);
	for (const int64_t mark : { low, low / 2 + high / 2, high }) {
		text += fmt::
			format("<path class=\"grid\" d=\"M{:.1f} {:.1f}H{:.1f}\"/>"
			       "<text class=\"end\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n",
			       left, y(mark), right, left - 4, y(mark) + 3,
			       bytes_text(mark));
	}
	if (low)
		text += fmt::
			format("<path class=\"zero\" d=\"M{:.1f} {:.1f}H{:.1f}\"/>\n",
			       left, y(0), right);
	text += fmt::
		format("<text x=\"{:.1f}\" y=\"{:.1f}\">{}</text>"
		       "<text class=\"end\" x=\"{:.1f}\" y=\"{:.1f}\">{} later</text>\n",
		       left, chart_height - 6, "first moment", right,
		       chart_height - 6,
		       duration_text(times.back() - times.front()));
	for (size_t i = 0; i < lines.size() && i < most_lines; ++i) {
		text += fmt::format("<path class=\"line l{}\" d=\"", i);
		for (size_t j = 0; j < times.size(); ++j)
			text += fmt::format("{}{:.1f} {:.1f}", j ? 'L' : 'M',
					    x(times[j]), y(lines[i].values[j]));
		text += fmt::format("\"><title>{}</title></path>\n",
				    lines[i].name);
	}
	text += "</svg>\n<ul class=\"legend\">\n";
	for (size_t i = 0; i < lines.size() && i < most_lines; ++i)
		text += fmt::
			format("<li><svg viewBox=\"0 0 24 8\" aria-hidden=\"true\">"
			       "<path class=\"line l{}\" d=\"M0 4H24\"/></svg> {} {}</li>\n",
			       i, lines[i].name,
			       bytes_text(lines[i].values.back()));
	return text + "</ul>\n";
}

} // namespace zorva
