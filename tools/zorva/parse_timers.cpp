// SPDX-License-Identifier: GPL-2.0
/*
 * zorva.timer and zorva.hrt: a row for each timer.
 *
 * The columns are narrower than what may stand in them: a data word of six
 * digits or more and the period after it have no blank between them. How many
 * blanks follow the period tells how long it is.
 */
#include "parse.h"
#include "scan.h"

namespace zorva
{
namespace
{

constexpr std::string_view head =
	"Component  Timer    Data  Msec     Running  StartBy";
constexpr std::string_view rule =
	"============================================================";

constexpr size_t component_width = 11;
constexpr size_t data_width = 6;
constexpr size_t period_width = 9;
constexpr std::string_view after_running = "        ";

/* Digits only, and nothing else. */
template <class Number>
bool scan_all(std::string_view digits, Number &to)
{
	scan in{ digits };

	return in.number(to) && in.done();
}

/* "0        " or "1        " */
bool scan_running(scan &in, bool &to)
{
	if (!in.rest.starts_with('0') && !in.rest.starts_with('1'))
		return false;
	to = in.rest[0] == '1';
	in.rest.remove_prefix(1);
	return in.text(after_running);
}

/*
 * A run of digits that is the data word and the period, and the blanks after
 * it; then comes the running mark, unless the period has taken its whole
 * column and the mark is the run's last digit.
 */
bool scan_joined(scan &in, timer &row)
{
	size_t digits = in.rest.find_first_not_of("0123456789");
	size_t blanks, period;

	if (digits == in.rest.npos)
		return false;
	blanks = in.rest.find_first_not_of(' ', digits);
	if (blanks == in.rest.npos)
		return false;
	blanks -= digits;

	scan after{ in.rest.substr(digits + blanks) };
	const std::string_view run = in.rest.substr(0, digits);

	if (blanks < period_width && scan_running(after, row.running)) {
		period = period_width - blanks;
	} else {
		if (blanks != after_running.size() || digits == 0)
			return false;
		row.running = run[digits - 1] == '1';
		if (!row.running && run[digits - 1] != '0')
			return false;
		--digits;
		period = period_width;
	}
	if (digits < period + data_width)
		return false;
	if (!scan_all(run.substr(0, digits - period), row.data) ||
	    !scan_all(run.substr(digits - period, period), row.period_ms))
		return false;
	in.rest = after.rest;
	return true;
}

bool scan_apart(scan &in, timer &row)
{
	if (!in.number(row.data) || !in.blanks() || !in.number(row.period_ms) ||
	    !in.blanks())
		return false;
	return scan_running(in, row.running);
}

bool scan_row(std::string_view text, timer &row)
{
	scan in{ text };
	std::string_view name, file;
	int64_t line;

	if (!in.until(" ", name) || name.empty() || !in.blanks() ||
	    !in.number(row.id) || !in.blanks())
		return false;

	const scan numbers = in;

	row.component = name;
	if (!scan_apart(in, row)) {
		in = numbers;
		if (!scan_joined(in, row))
			return false;
	}
	if (in.rest == "--")
		return true;
	if (!scan_site(in.rest, file, line))
		return false;
	row.started_by = { std::string(file), line };
	return true;
}

/* A row that a number spoils is still known by its columns. */
bool looks_like_row(std::string_view text)
{
	return text.size() > component_width && text[0] != ' ' &&
	       text[component_width - 1] == ' ' &&
	       text[component_width] >= '0' && text[component_width] <= '9';
}

class timer_parser final : public report_parser {
public:
	explicit timer_parser(report_kind kind) : kind_(kind)
	{
	}

	taken line(std::string_view text, place at) override
	{
		const std::string_view shown = trimmed(text);
		timer row;

		if (shown == head || shown == rule || shown.empty())
			return taken::yes;
		if (!scan_row(text, row))
			return looks_like_row(text) ? taken::bad : taken::no;
		row.at = at;
		report_.timers.push_back(std::move(row));
		return taken::yes;
	}

	void finish(model &into, const report_state &state, notes &) override
	{
		timer_report &place = kind_ == report_kind::hrt ? into.hr_timers
								: into.timers;

		if (!may_replace(place, state))
			return;
		place = std::move(report_);
		place.state = state;
	}

private:
	const report_kind kind_;
	timer_report report_;
};

} // namespace

std::unique_ptr<report_parser> make_timer_parser(report_kind kind)
{
	return std::make_unique<timer_parser>(kind);
}

} // namespace zorva
