// SPDX-License-Identifier: GPL-2.0
/*
 * Who waits for whom, from top to bottom: a thread, below it the lock that it
 * waits for, below that who has it. What goes back up, or further down, is a
 * line at the side. So each box can say all of it, on a phone as well.
 */
#include "html.h"
#include "picture.h"
#include "print.h"
#include "waits_view.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>

namespace zorva
{
namespace
{

constexpr double width = 360, box_left = 6, box_width = 288, box_height = 40;
constexpr double row_height = 64;

/* More are not to be understood in a picture. */
constexpr size_t most_boxes = 60;

struct box {
	bool thread = false;
	size_t of = 0; /* index into waits::actors, or waits::locks */

	auto operator<=>(const box &) const = default;
};

struct arrow {
	size_t from, to; /* rows */
	bool stuck, proven;
};

class drawing {
public:
	explicit drawing(const waits &of) : of_(of)
	{
		for (const deadlock &one : of.deadlocks)
			for (const wait_step &step : one.steps) {
				stuck_.insert({ true, step.actor });
				stuck_.insert({ false, step.lock });
			}
	}

	std::string text();

private:
	bool is_worth(size_t which) const
	{
		const actor &one = of_.actors[which];

		return one.lock && !waits_for_work(of_, one);
	}
	void add_chain(size_t first);
	void add_arrows();
	std::string title_of(const box &one) const;
	std::string note_of(const box &one) const;
	void draw_box(size_t row);
	void draw_arrow(const arrow &one);

	const waits &of_;
	std::set<box> stuck_;
	std::vector<box> rows_;
	std::map<box, size_t> row_of_;
	std::vector<arrow> arrows_;
	size_t left_out_ = 0;
	std::string text_;
};

/* A thread, what it waits for, who has that, and so on until it is there. */
void drawing::add_chain(size_t first)
{
	box next = { true, first };

	while (row_of_.try_emplace(next, rows_.size()).second) {
		rows_.push_back(next);
		if (next.thread) {
			const actor &one = of_.actors[next.of];

			if (!one.lock)
				return;
			next = { false, *one.lock };
		} else {
			const lock_state &one = of_.locks[next.of];

			if (one.holders.empty())
				return;
			next = { true, one.holders[0].actor };
		}
	}
}

void drawing::add_arrows()
{
	for (size_t row = 0; row < rows_.size(); ++row) {
		const box &one = rows_[row];

		const auto add = [&](const box &to, bool proven) {
			const auto at = row_of_.find(to);

			if (at != row_of_.end())
				arrows_.push_back(
					{ row, at->second,
					  stuck_.count(one) && stuck_.count(to),
					  proven });
		};

		if (one.thread) {
			const actor &its = of_.actors[one.of];

			if (its.lock)
				add({ false, *its.lock }, its.sure.proven);
			continue;
		}
		for (const holder &by : of_.locks[one.of].holders)
			add({ true, by.actor }, by.sure.proven);
	}
}

std::string drawing::title_of(const box &one) const
{
	if (one.thread) {
		const actor &its = of_.actors[one.of];

		return fmt::format("{} ({}){}", html(its.name, 32), its.pid,
				   its.component.empty()
					   ? ""
					   : " of " + html(its.component, 16));
	}
	return html(lock_text(of_.locks[one.of]), 44);
}

std::string drawing::note_of(const box &one) const
{
	if (one.thread) {
		const actor &its = of_.actors[one.of];

		if (!its.alive)
			return "has ended";
		if (!its.lock)
			return its.blocked ? "is blocked elsewhere"
					   : "waits for no lock";
		return fmt::format("waits at {} for {}{}",
				   html_again(call_text(its)),
				   elapsed_text(of_.now, its.since),
				   its.sure.proven ? "" : ", probably");
	}

	const lock_state &its = of_.locks[one.of];

	if (!its.taken)
		return its.holders.empty() ? "who has it is not known" : "held";
	return fmt::format("taken at {}, {} ago",
			   html_again(site_text(its.taken->from)),
			   elapsed_text(of_.now, its.taken->time));
}

void drawing::draw_box(size_t row)
{
	const box &one = rows_[row];
	const double y = static_cast<double>(row) * row_height + 2;

	text_ += fmt::
		format("<g class=\"box {}{}\"><rect x=\"{}\" y=\"{}\" width=\"{}\" "
		       "height=\"{}\" rx=\"{}\"/><text class=\"name\" x=\"{}\" "
		       "y=\"{}\">{}</text><text x=\"{}\" y=\"{}\">{}</text></g>\n",
		       one.thread ? "thread" : "lock",
		       stuck_.count(one) ? " stuck" : "", box_left, y,
		       box_width, box_height, one.thread ? 3 : 20,
		       box_left + 14, y + 17, title_of(one), box_left + 14,
		       y + 32, note_of(one));
}

void drawing::draw_arrow(const arrow &one)
{
	const auto middle = [](size_t row) {
		return static_cast<double>(row) * row_height + 2 +
		       box_height / 2;
	};
	const std::string look = fmt::format("{}{}", one.stuck ? " stuck" : "",
					     one.proven ? "" : " unproven");
	const double side = box_left + box_width;

	if (one.to == one.from + 1) {
		const double x = box_left + box_width / 2;
		const double y = middle(one.from) + box_height / 2;

		text_ += fmt::
			format("<path class=\"arrow{0}\" d=\"M{1} {2}V{3}\"/>"
			       "<path class=\"head{0}\" d=\"M{1} {4}l-5 -9h10z\"/>\n",
			       look, x, y, y + row_height - box_height - 8,
			       y + row_height - box_height);
		return;
	}

	const double rows = one.to > one.from
				    ? static_cast<double>(one.to - one.from)
				    : static_cast<double>(one.from - one.to);
	const double out = side + std::min(80.0, 24 + 8 * rows);
	const double from = middle(one.from), to = middle(one.to);

	text_ += fmt::
		format("<path class=\"arrow{0}\" d=\"M{1} {2}C{3} {2} {3} {4} {5} {4}\"/>"
		       "<path class=\"head{0}\" d=\"M{1} {4}l9 -5v10z\"/>\n",
		       look, side, from, out, to, side + 8);
}

std::string drawing::text()
{
	for (const deadlock &one : of_.deadlocks)
		if (!one.steps.empty())
			add_chain(one.steps[0].actor);
	for (size_t i = 0; i < of_.actors.size(); ++i) {
		if (!is_worth(i) || row_of_.count({ true, i }))
			continue;
		if (rows_.size() >= most_boxes)
			++left_out_;
		else
			add_chain(i);
	}
	if (rows_.empty())
		return "";
	add_arrows();

	text_ = fmt::format("<svg class=\"waits\" viewBox=\"0 0 {} {}\" "
			    "role=\"img\" aria-label=\"Who waits for whom; the "
			    "same in words below\">\n",
			    width,
			    static_cast<double>(rows_.size()) * row_height -
				    (row_height - box_height) + 4);
	for (const arrow &one : arrows_)
		draw_arrow(one);
	for (size_t row = 0; row < rows_.size(); ++row)
		draw_box(row);
	text_ += "</svg>\n";
	if (left_out_)
		text_ += fmt::format("<p class=\"rest\">{} not shown.</p>\n",
				     count_text(left_out_,
						"more thread that waits is",
						"more threads that wait are"));
	return std::move(text_);
}

} // namespace

std::string waits_picture(const waits &of)
{
	return drawing(of).text();
}

} // namespace zorva
