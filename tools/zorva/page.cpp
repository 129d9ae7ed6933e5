// SPDX-License-Identifier: GPL-2.0
/*
 * The page, section by section. What is in a section comes from what the
 * commands use; here it only gets its form.
 */
#include "page.h"

#include "html.h"
#include "memory.h"
#include "picture.h"
#include "print.h"
#include "thread_view.h"
#include "waits_view.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace zorva
{
namespace
{

constexpr char style_text[] = {
#include "page.css.inc"
	0
};
constexpr char style_hash[] =
#include "page.css.hash"
	;
constexpr char script_text[] = {
#include "page.js.inc"
	0
};
constexpr char script_hash[] =
#include "page.js.hash"
	;

/* What a table shows of a long list. */
constexpr size_t most_rows = 300;
constexpr size_t most_problems = 50;
constexpr size_t most_complaints = 20;

/* A part of the page, and how the list of contents calls it. */
struct section {
	std::string_view id, title;
	std::string text;
};

/* The first so many of a list, and what is said of the others. */
template <class List, class Row>
html_table table_of(std::string_view caption, std::vector<html_column> columns,
		    const List &list, std::string_view what, Row &&row)
{
	html_table made = { caption, std::move(columns), {}, 0, what };

	for (const auto &one : list) {
		if (made.rows.size() >= most_rows)
			++made.left_out;
		else
			made.rows.push_back(row(one));
	}
	return made;
}

std::string site_html(const site &at)
{
	return html_again(site_text(at));
}

const char *look_of(const problem &of)
{
	if (!of.wrong())
		return "note";
	return of.what <= trouble::leak ? "bad" : "warn";
}

std::string problems_section(const page_content &of)
{
	std::string text;
	size_t shown = 0;

	for (const problem &one : of.problems) {
		if (++shown > most_problems) {
			text += fmt::
				format("<p class=\"rest\">{} more not shown.</p>\n",
				       of.problems.size() - most_problems);
			break;
		}
		text += fmt::format("<article class=\"{}\">\n<h3>{}</h3>\n<ul>\n",
				    look_of(one), html_again(one.title));
		for (const std::string &detail : one.details)
			text += fmt::format("<li>{}</li>\n",
					    html_again(detail));
		text += "</ul>\n";
		if (one.wrong())
			text += fmt::format("<p class=\"next\">Go on with: "
					    "<code>zorva {}</code></p>\n",
					    html_again(one.next));
		text += "</article>\n";
	}
	return text.empty() ? "<p>Nothing looks wrong.</p>\n" : text;
}

std::string figures_text(const model &now)
{
	std::string text = "<dl class=\"figures\">\n";
	uint64_t bytes = 0, blocks = 0;

	const auto add = [&](std::string_view what, const std::string &value) {
		text += fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", what,
				    value);
	};

	for (const component_usage &one : usage_of(now)) {
		bytes += one.current;
		blocks += one.delta;
	}
	add("in use", size_text(bytes));
	add("blocks", fmt::format("{}", blocks));
	add("components", fmt::format("{}", usage_of(now).size()));
	if (const auto left = available_memory(now))
		add("left in the kernel", size_text(*left));
	return text + "</dl>\n";
}

std::string components_table(const model &now)
{
	std::vector<const component_usage *> all;
	uint64_t most = 0;

	for (const component_usage &one : usage_of(now)) {
		all.push_back(&one);
		most = std::max<uint64_t>(most, one.current);
	}
	std::stable_sort(all.begin(), all.end(), [](auto *a, auto *b) {
		return a->current > b->current;
	});
	return html_of(table_of("Memory by component",
				{ { "Component" },
				  { "" },
				  { "Used", true },
				  { "Most", true },
				  { "Blocks", true },
				  { "Allocated", true },
				  { "Freed", true } },
				all, "more components are",
				[most](const component_usage *one)
					-> std::vector<html_cell> {
					return { { html(one->name) },
						 bar_cell(one->current, most),
						 size_cell(one->current),
						 size_cell(one->max),
						 number_cell(one->delta),
						 number_cell(one->allocs),
						 number_cell(one->frees) };
				}));
}

std::string sites_table(const std::vector<block_group> &sites)
{
	const uint64_t most = sites.empty() ? 0 : sites[0].bytes;

	return html_of(
		table_of("Memory by place of allocation",
			 { { "Component" },
			   { "Allocated at" },
			   { "" },
			   { "Used", true },
			   { "Blocks", true },
			   { "Oldest", true },
			   { "Youngest", true } },
			 sites, "more places are",
			 [most](const block_group &one)
				 -> std::vector<html_cell> {
				 return { { html(one.component) },
					  { site_html(one.from) },
					  bar_cell(one.bytes, most),
					  size_cell(one.bytes),
					  number_cell(static_cast<int64_t>(
						  one.blocks)),
					  duration_cell(one.oldest),
					  duration_cell(one.youngest) };
			 }));
}

std::string memory_section(const model &now)
{
	const std::vector<block_group> sites =
		group_blocks(now.blocks, grouping::by_site);
	std::string text = figures_text(now);

	text += memory_picture(sites);
	text += components_table(now);
	if (now.blocks.state.present)
		text += sites_table(sites);
	else
		text += "<p>Without zorva.mem.detail the places are not known.</p>\n";
	return text;
}

std::string ages_section(const model &now)
{
	const std::vector<block_group> ages =
		group_blocks(now.blocks, grouping::by_age);
	uint64_t most = 0;

	for (const block_group &one : ages)
		most = std::max(most, one.bytes);
	return html_of(
		table_of("Blocks by age",
			 { { "Age", true },
			   { "" },
			   { "Used", true },
			   { "Blocks", true } },
			 ages, "more ages are",
			 [most](const block_group &one)
				 -> std::vector<html_cell> {
				 const std::string low = duration_text(one.low);

				 return {
					 { one.high == UINT64_MAX
						   ? low + " and more"
						   : fmt::format("{} to {}",
								 low,
								 duration_text(
									 one.high)),
					   static_cast<int64_t>(one.low) },
					 bar_cell(one.bytes, most),
					 size_cell(one.bytes),
					 number_cell(static_cast<int64_t>(
						 one.blocks))
				 };
			 }));
}

/* Those that can be compared: with their memory, and each later than the last. */
std::vector<const model *> growing_moments(const page_content &of)
{
	std::vector<const model *> moments;

	for (const model *one : of.moments) {
		const auto time = time_of(*one);

		if (time && !usage_of(*one).empty() &&
		    (moments.empty() || *time > *time_of(*moments.back())))
			moments.push_back(one);
	}
	return moments;
}

/* The components that have changed most, against the first moment. */
std::vector<picture_line>
changed_components(const std::vector<const model *> &moments)
{
	std::map<std::string, std::vector<int64_t>> all;
	std::vector<picture_line> lines;

	for (size_t i = 0; i < moments.size(); ++i)
		for (const component_usage &one : usage_of(*moments[i])) {
			auto &values = all[one.name];

			values.resize(moments.size());
			values[i] += one.current;
		}
	for (auto &[name, values] : all) {
		const int64_t first = values[0];

		for (int64_t &value : values)
			value -= first;
		if (std::any_of(values.begin(), values.end(),
				[](int64_t value) {
					return value != 0;
				}))
			lines.push_back({ html(name), std::move(values) });
	}
	std::stable_sort(lines.begin(), lines.end(),
			 [](const picture_line &a, const picture_line &b) {
				 return std::abs(a.values.back()) >
					std::abs(b.values.back());
			 });
	return lines;
}

std::string growth_section(const page_content &of)
{
	const std::vector<const model *> moments = growing_moments(of);
	std::vector<uint64_t> times;
	std::vector<picture_line> lines;
	std::string text;

	if (moments.size() < 2)
		return "<p>This needs snapshots of two moments at least.</p>\n";
	for (const model *one : moments)
		times.push_back(*time_of(*one));
	lines = changed_components(moments);
	if (lines.empty())
		return fmt::format("<p>Nothing has changed within {}.</p>\n",
				   duration_text(times.back() - times.front()));
	if (lines.size() > most_lines) {
		text = fmt::format("<p class=\"rest\">{} more components have "
				   "changed, by less.</p>\n",
				   lines.size() - most_lines);
		lines.resize(most_lines);
	}
	text = growth_picture(times, lines) + text;

	const comparison found = compare(moments);

	if (found.grown.empty())
		return text + "<p>Nothing has grown.</p>\n";

	text += html_of(
		table_of("What has grown",
			 { { "Component" },
			   { "Allocated at" },
			   { "Grew", true },
			   { "Blocks", true },
			   { "Now", true },
			   { "Oldest", true },
			   { "" } },
			 found.grown, "more places that grew are",
			 [](const growth &one) -> std::vector<html_cell> {
				 return { { html(one.component) },
					  { one.from.file.empty()
						    ? "-"
						    : site_html(one.from) },
					  { growth_text(one.more_bytes()),
					    one.more_bytes() },
					  { fmt::format("{:+}",
							one.more_blocks()),
					    one.more_blocks() },
					  size_cell(one.bytes.back()),
					  duration_cell(one.oldest),
					  one.only_up()
						  ? html_cell{ "only grew", 0,
							       "bad" }
						  : html_cell{
							    "up and down" } };
			 }));
	return text;
}

std::string damage_section(const model &now)
{
	const std::vector<damage> found = find_damage(now.blocks);

	if (!now.blocks.state.present)
		return "<p>zorva.mem.detail was not read.</p>\n";
	if (found.empty())
		return "<p>No block is damaged.</p>\n";
	return html_of(
		table_of("Damaged blocks",
			 { { "Component" },
			   { "Allocated at" },
			   { "Header" },
			   { "Below it" } },
			 found, "more damaged blocks are",
			 [&now](const damage &one) -> std::vector<html_cell> {
				 const memory_detail &of = now.blocks;
				 std::string below = "nothing";

				 if (one.adjacent)
					 below = site_html(
						 of.sites[one.below
								  ? one.below->site
								  : one.torn_below
									    ->site]);
				 return {
					 { html(of.components[one.torn->component]
							.name) },
					 { site_html(of.sites[one.torn->site]) },
					 { fmt::format("{:08x}",
						       one.torn->header) },
					 { below }
				 };
			 }));
}

std::string waits_section(const page_content &of)
{
	const std::string picture = waits_picture(*of.waiting);
	const std::string words = waits_text(*of.waiting, false);

	return picture +
	       "<pre class=\"words\" tabindex=\"0\" role=\"region\" "
	       "aria-label=\"Who waits for whom, in words\">" +
	       html_again(words) + "</pre>\n";
}

std::string locks_section(const waits &found)
{
	std::vector<const lock_state *> all;

	for (const lock_state &one : found.locks)
		all.push_back(&one);
	/* Those that are held, and wanted, first. */
	std::stable_sort(all.begin(), all.end(), [](auto *a, auto *b) {
		const auto rank = [](const lock_state *one) {
			return std::pair(one->which->mutex && one->which->taken,
					 one->waiters.size());
		};

		return rank(a) > rank(b);
	});
	if (all.empty())
		return "<p>There are no locks.</p>\n";
	return html_of(
		table_of("Locks",
			 { { "Lock" },
			   { "Kind" },
			   { "Owner" },
			   { "State" },
			   { "Held for", true },
			   { "By" },
			   { "Taken at" },
			   { "Waiting", true } },
			 all, "more locks are",
			 [&found](const lock_state *one)
				 -> std::vector<html_cell> {
				 const lock &its = *one->which;
				 const bool held = its.mutex && its.taken;
				 html_cell since = { "-", -1 };

				 if (held && one->taken && found.now &&
				     *found.now >= one->taken->time)
					 since = duration_cell(
						 *found.now - one->taken->time);
				 return {
					 { html(its.name) },
					 { its.mutex ? "mutex" : "semaphore" },
					 { html(its.component) },
					 held ? html_cell{ "held", 0, "warn" }
					      : html_cell{ its.taken
								   ? "no unit free"
								   : "free" },
					 since,
					 { held ? html(its.locker_name) : "-" },
					 { held && one->taken
						   ? site_html(one->taken->from)
						   : "-" },
					 number_cell(static_cast<int64_t>(
						 one->waiters.size()))
				 };
			 }));
}

std::string queues_section(const model &now)
{
	if (now.queues.queues.empty())
		return "<p>There are no queues.</p>\n";
	return html_of(
		table_of("Message queues",
			 { { "Queue" },
			   { "Owner" },
			   { "" },
			   { "Now", true },
			   { "Most", true },
			   { "Room", true },
			   { "Message", true },
			   { "State" } },
			 now.queues.queues, "more queues are",
			 [](const queue &one) -> std::vector<html_cell> {
				 const auto room =
					 static_cast<int64_t>(one.max_depth);
				 html_cell state = { "ok" };

				 if (one.depth >= room)
					 state = { "FULL", 0, "bad" };
				 else if (one.max_seen >= room)
					 state = { "was full", 0, "warn" };
				 return {
					 { html(one.name) },
					 { html(one.component) },
					 bar_cell(static_cast<uint64_t>(
							  std::clamp<
								  int64_t>(one.depth,
									   0,
									   room)),
						  one.max_depth),
					 number_cell(one.depth),
					 number_cell(one.max_seen),
					 number_cell(room),
					 size_cell(one.message_size),
					 state
				 };
			 }));
}

std::string timers_section(const model &now)
{
	struct row {
		const timer *its;
		bool high;
	};
	std::vector<row> all;

	for (const timer &one : now.timers.timers)
		all.push_back({ &one, false });
	for (const timer &one : now.hr_timers.timers)
		all.push_back({ &one, true });
	if (all.empty())
		return "<p>There are no timers.</p>\n";
	return html_of(
		table_of("Timers",
			 { { "Owner" },
			   { "Kind" },
			   { "ID", true },
			   { "Period", true },
			   { "State" },
			   { "Started at" } },
			 all, "more timers are",
			 [](const row &one) -> std::vector<html_cell> {
				 const timer &its = *one.its;

				 return {
					 { html(its.component) },
					 { one.high ? "high resolution"
						    : "tick" },
					 number_cell(its.id),
					 its.running
						 ? html_cell{ fmt::format("{} ms",
									  its.period_ms),
							      its.period_ms }
						 : html_cell{ "-", -1 },
					 { its.running ? "runs" : "stopped" },
					 { its.started_by
						   ? site_html(*its.started_by)
						   : "-" }
				 };
			 }));
}

std::string threads_section(const model &now)
{
	const std::vector<thread> &threads = now.threads.threads;

	if (threads.empty())
		return "<p>There are no threads.</p>\n";
	return html_of(
		table_of("Threads",
			 { { "PID", true },
			   { "Thread" },
			   { "Owner" },
			   { "State" },
			   { "Priority" },
			   { "Holds" },
			   { "In" } },
			 threads, "more threads are",
			 [&now](const thread &one) -> std::vector<html_cell> {
				 const cell state = thread_state(now, one);

				 return {
					 number_cell(one.pid),
					 { html(one.name) },
					 { html(one.component) },
					 { html_again(state.text), 0,
					   state.how == style::bad    ? "bad"
					   : state.how == style::warn ? "warn"
								      : "" },
					 { priority_text(one.priority) },
					 { html_again(
						 thread_holds(now, one.pid)) },
					 { html_again(
						 thread_place(now, one.pid)) }
				 };
			 }));
}

/* What was read, and what of it could not be. */
std::string input_section(const page_content &of)
{
	std::string text = "<ul>\n";

	for (size_t i = 0; i < of.readings.size(); ++i) {
		const reading &one = *of.readings[i];

		text += fmt::format("<li>{}: {}{}{}</li>\n",
				    of.sources[i].empty()
					    ? "this machine"
					    : html(of.sources[i], 200),
				    count_text(one.moments.size(), "moment"),
				    one.errors
					    ? ", " +
						      count_text(one.errors,
								 "line") +
						      " that could not be read"
					    : "",
				    one.warnings ? ", not all of it is there"
						 : "");
	}
	text += "</ul>\n";
	if (std::all_of(of.readings.begin(), of.readings.end(),
			[](const reading *one) {
				return !one->errors && !one->warnings;
			}))
		return text;
	text += "<ul class=\"complaints\">\n";
	for (const reading *one : of.readings) {
		size_t shown = 0;

		for (const diagnostic &its : one->diagnostics)
			if (its.level != severity::note &&
			    shown++ < most_complaints)
				text += fmt::format("<li>{}: {}</li>\n",
						    html(place_text(*one,
								    its.at),
							 200),
						    html(its.text, 200));
	}
	return text + "</ul>\n";
}

std::string verdict(const page_content &of)
{
	const auto wrong = static_cast<uint64_t>(
		std::count_if(of.problems.begin(), of.problems.end(),
			      [](const problem &one) {
				      return one.wrong();
			      }));

	if (!wrong)
		return "<p class=\"verdict good\">Nothing looks wrong.</p>\n";
	return fmt::format("<p class=\"verdict bad\">{}.</p>\n",
			   count_text(wrong, "thing looks wrong",
				      "things look wrong"));
}

std::string head_text(const model &now)
{
	std::string text =
		"<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n"
		"<meta charset=\"utf-8\">\n"
		"<meta http-equiv=\"Content-Security-Policy\" content=\""
		"default-src 'none'; img-src data:; base-uri 'none'; "
		"form-action 'none'; style-src 'sha256-";

	text += base64_of_hex(style_hash);
	text += "'; script-src 'sha256-";
	text += base64_of_hex(script_hash);
	text += "'\">\n<meta name=\"viewport\" "
		"content=\"width=device-width, initial-scale=1\">\n"
		"<meta name=\"color-scheme\" content=\"light dark\">\n"
		"<link rel=\"icon\" href=\"data:,\">\n"
		"<title>zorva: report of a switch</title>\n<style>";
	text += style_text;
	text += "</style>\n</head>\n<body>\n<a class=\"skip\" href=\"#main\">To "
		"the report</a>\n<header>\n<h1>Report of a switch</h1>\n";

	/* Who compiled it, and with what, says little here. */
	const std::string_view kernel =
		std::string_view(now.kernel_version)
			.substr(0, now.kernel_version.find(" ("));

	if (const auto time = time_of(now))
		text += fmt::format("<p class=\"when\">Taken {} after it was "
				    "started{}{}.</p>\n",
				    duration_text(*time),
				    kernel.empty() ? "" : ", on ",
				    html(kernel));
	return text;
}

} // namespace

std::string page_text(const page_content &of)
{
	const model &now = *of.moments.back();
	std::vector<section> sections = {
		{ "problems", "What looks wrong", problems_section(of) },
		{ "memory", "Memory", memory_section(now) },
		{ "growth", "Growth", growth_section(of) },
		{ "ages", "Blocks by age",
		  now.blocks.state.present
			  ? ages_section(now)
			  : "<p>zorva.mem.detail was not read.</p>\n" },
		{ "damage", "Damaged blocks", damage_section(now) },
		{ "waits", "Who waits for whom", waits_section(of) },
		{ "locks", "Locks", locks_section(*of.waiting) },
		{ "queues", "Message queues", queues_section(now) },
		{ "threads", "Threads", threads_section(now) },
		{ "timers", "Timers", timers_section(now) },
		{ "input", "What was read", input_section(of) },
	};
	std::string text = head_text(now);

	text += verdict(of);
	text += "<nav aria-label=\"Contents\"><ul>\n";
	for (const section &one : sections)
		text += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", one.id,
				    one.title);
	text += "</ul></nav>\n</header>\n<main id=\"main\">\n";
	for (const section &one : sections)
		text += fmt::
			format("<section id=\"{0}\" aria-labelledby=\"{0}-title\">"
			       "\n<h2 id=\"{0}-title\">{1}</h2>\n{2}</section>\n",
			       one.id, one.title, one.text);
	text += "</main>\n<footer><p>Made by <code>zorva report</code>. Sizes "
		"are what owners asked for; each block costs 56 bytes more. "
		"This page fetches nothing.</p></footer>\n<script>";
	text += script_text;
	return text + "</script>\n</body>\n</html>\n";
}

} // namespace zorva
