// SPDX-License-Identifier: GPL-2.0
/* The live screen's lines; see top.h. */
#include "top.h"
#include "memory.h"

#include <algorithm>
#include <fmt/format.h>

namespace zorva
{
namespace
{

/* A lock that is held for longer may be stuck. */
constexpr uint64_t held_long = 10;

constexpr const char *titles[] = {
	"COMPONENT        BYTES      BLOCKS  SINCE START          RATE",
	"ALLOCATED AT             OWNER         BYTES      BLOCKS  SINCE START",
	"LOCK HELD                        OWNER    FOR         BY",
	"QUEUE                            OWNER    NOW   MOST   ROOM",
};

constexpr const char *help_lines[] = {
	"Up, Down, k, j    select a row        PgUp, PgDn    by ten",
	"Tab               the next section    Enter, Esc    look into it, and back",
	"s                 sort: size, growth, name",
	"/                 show only what has this text in its name; Enter ends it",
	"Space             freeze, and go on",
	"d                 read the detailed memory report, once: it is dear",
	"?                 this help           q             quit",
};

std::string site_text(const site &of)
{
	return fmt::format("{}:{}", escaped(of.file), of.line);
}

/* Cut to a width; what is shorter is filled up. */
std::string fitted(std::string text, size_t columns)
{
	size_t width = 0;
	size_t end = 0;

	/* Continuation bytes of UTF-8 take no column. */
	while (end < text.size()) {
		if ((static_cast<unsigned char>(text[end]) & 0xC0) != 0x80) {
			if (width == columns)
				break;
			++width;
		}
		++end;
	}
	text.resize(end);
	text.append(columns - width, ' ');
	return text;
}

std::string growth_cell(const top_amount &of)
{
	return of.more_bytes ? growth_text(of.more_bytes) : "-";
}

std::string rate_cell(const top_amount &of)
{
	if (!of.seconds || !of.more_bytes)
		return "-";

	const double rate = static_cast<double>(of.more_bytes) * 3600 /
			    static_cast<double>(of.seconds);

	return growth_text(static_cast<int64_t>(rate)) + "/h";
}

std::string history_line(const lock_call &call)
{
	return fmt::format("  {} at {} s  {}", call.give ? "give" : "take",
			   call.time, site_text(call.from));
}

} // namespace

top_amount top_screen::amount_of(const std::string &key, uint64_t bytes,
				 uint64_t blocks, uint64_t time)
{
	const first_look &first =
		first_.try_emplace(key, first_look{ bytes, time }).first->second;

	return { bytes, blocks, static_cast<int64_t>(bytes - first.bytes),
		 time - first.time };
}

void top_screen::add_components()
{
	total_bytes_ = 0;
	for (const component_usage &one : usage_of(last_)) {
		const std::string key = "component " + one.name;
		const uint64_t blocks = one.allocs - one.frees;
		top_row row;

		total_bytes_ += one.current;
		row.key = key;
		row.name = one.name;
		row.amount = amount_of(key, one.current, blocks, now_);
		row.cells = { fmt::format("{:<10}{:>12}{:>12}{:>13}{:>14}",
					  escaped(one.name, 10),
					  size_text(one.current), blocks,
					  growth_cell(row.amount),
					  rate_cell(row.amount)) };
		row.index = static_cast<size_t>(&one - usage_of(last_).data());
		if (row.amount.more_bytes > 0)
			row.how = style::warn;
		rows_.push_back(std::move(row));
	}
}

void top_screen::add_sites()
{
	if (!last_.blocks.state.present)
		return;

	const uint64_t time = last_.blocks.state.now.value_or(now_);

	details_time_ = time;
	sites_.clear();
	for (const block_group &one :
	     group_blocks(last_.blocks, grouping::by_site)) {
		const std::string key =
			fmt::format("site {} {}:{}", one.component,
				    one.from.file, one.from.line);
		top_row row;

		row.section = top_section::sites;
		row.key = key;
		row.name = one.from.file + " " + one.component;
		row.amount = amount_of(key, one.bytes, one.blocks, time);
		row.cells = { fmt::format("{:<25}{:<8}{:>12}{:>12}{:>13}",
					  site_text(one.from),
					  escaped(one.component, 8),
					  size_text(one.bytes), one.blocks,
					  growth_cell(row.amount)),
			      one.component };
		row.more = {
			fmt::format("{}: {} of {} in {}", site_text(one.from),
				    size_text(one.bytes),
				    escaped(one.component),
				    count_text(one.blocks, "block")),
			fmt::format("the oldest is {} old, the youngest {}",
				    duration_text(one.oldest),
				    duration_text(one.youngest)),
			fmt::format("as of {} s after boot; d reads it again",
				    time),
		};
		if (row.amount.more_bytes > 0)
			row.how = style::warn;
		sites_.push_back(std::move(row));
	}
}

void top_screen::add_locks()
{
	held_ = 0;
	for (const bool mutexes : { true, false }) {
		const lock_report &report = best_locks(last_, mutexes);
		const uint64_t time = report.state.now.value_or(now_);

		for (const lock &one : report.locks) {
			/* A unit that somebody waits for is not held. */
			if (!one.taken || (!mutexes && one.history.empty()))
				continue;

			uint64_t since = time;
			top_row row;

			for (const lock_call &call : one.history)
				if (!call.give) {
					since = call.time;
					break;
				}
			row.amount.bytes = time - std::min(since, time);
			row.section = top_section::locks;
			row.key = fmt::format("lock {} {}", mutexes,
					      one.index.value_or(0));
			row.name = one.name + " " + one.component;
			row.cells = {
				fmt::format("{:<33}{:<9}{:<12}{}",
					    fmt::format("{} {}",
							mutexes ? "mutex"
								: "sem",
							escaped(one.name, 31)),
					    escaped(one.component, 8),
					    duration_text(row.amount.bytes),
					    mutexes ? fmt::format("{} ({})",
								  escaped(one.locker_name),
								  one.locker_pid.value_or(
									  0))
						    : "-")
			};
			row.index =
				static_cast<size_t>(&one - report.locks.data());
			row.mutex = mutexes;
			if (mutexes && row.amount.bytes >= held_long)
				row.how = style::bad;
			held_ += mutexes;
			rows_.push_back(std::move(row));
		}
	}
}

void top_screen::add_queues()
{
	full_ = 0;
	for (const queue &one : last_.queues.queues) {
		const bool full = one.depth >=
				  static_cast<int64_t>(one.max_depth);
		top_row row;

		row.section = top_section::queues;
		row.key =
			fmt::format("queue {} {}", one.component_id, one.name);
		row.name = one.name + " " + one.component;
		row.amount.bytes = one.max_depth && one.depth > 0
					   ? static_cast<uint64_t>(one.depth) *
						     1000 / one.max_depth
					   : 0;
		row.cells = { fmt::format("{:<33}{:<9}{:>3}{:>7}{:>7}{}",
					  escaped(one.name, 32),
					  escaped(one.component, 8), one.depth,
					  one.max_seen, one.max_depth,
					  full ? "  FULL" : "") };
		row.index =
			static_cast<size_t>(&one - last_.queues.queues.data());
		full_ += full;
		if (full)
			row.how = style::bad;
		rows_.push_back(std::move(row));
	}
}

void top_screen::update(model now)
{
	last_ = std::move(now);
	now_ = time_of(last_).value_or(now_);
	if (last_.uptime_ms)
		now_ = *last_.uptime_ms / 1000;
	add_sites();
	rows_.clear();
	add_components();
	rows_.insert(rows_.end(), sites_.begin(), sites_.end());
	add_locks();
	add_queues();
}

std::vector<const top_row *> top_screen::shown(const top_view &view) const
{
	std::vector<const top_row *> found;

	for (const top_row &one : rows_)
		if (one.name.find(view.filter) != std::string::npos)
			found.push_back(&one);
	std::stable_sort(found.begin(), found.end(),
			 [&](const top_row *a, const top_row *b) {
				 if (a->section != b->section)
					 return a->section < b->section;
				 switch (view.order) {
				 case top_order::by_name:
					 return a->name < b->name;
				 case top_order::by_growth:
					 return a->amount.more_bytes >
						b->amount.more_bytes;
				 default:
					 return a->amount.bytes >
						b->amount.bytes;
				 }
			 });
	return found;
}

void top_screen::move(top_view &view, int by) const
{
	const std::vector<const top_row *> rows = shown(view);
	int at = -1;

	if (rows.empty())
		return;
	for (size_t i = 0; i < rows.size(); ++i)
		if (rows[i]->key == view.selected)
			at = static_cast<int>(i);
	/* With nothing selected yet, the first step selects the first row. */
	at = at < 0 ? 0
		    : std::clamp(at + by, 0, static_cast<int>(rows.size()) - 1);
	view.selected = rows[static_cast<size_t>(at)]->key;
}

void top_screen::next_section(top_view &view) const
{
	const std::vector<const top_row *> rows = shown(view);
	size_t at = 0;

	if (rows.empty())
		return;
	while (at < rows.size() && rows[at]->key != view.selected)
		++at;

	size_t next = at;

	if (at < rows.size())
		while (next < rows.size() &&
		       rows[next]->section == rows[at]->section)
			++next;
	view.selected = rows[next < rows.size() ? next : 0]->key;
}

std::string top_screen::heading() const
{
	return fmt::format("zorva top  up {}  {} in memory  {} held  {} full",
			   duration_text(now_), size_text(total_bytes_),
			   count_text(held_, "mutex", "mutexes"),
			   count_text(full_, "queue"));
}

std::vector<top_line> top_screen::body(const top_view &view,
				       size_t *selected) const
{
	std::vector<top_line> lines;
	const top_row *before = nullptr;

	*selected = 0;
	for (const top_row *one : shown(view)) {
		if (!before || before->section != one->section)
			lines.push_back(
				{ titles[static_cast<size_t>(one->section)],
				  style::bold, false });
		before = one;

		const bool chosen = one->key == view.selected;

		if (chosen)
			*selected = lines.size();
		lines.push_back({ one->cells[0], one->how, chosen });
	}
	if (lines.empty())
		lines.push_back({ rows_.empty() ? "Nothing is there yet."
						: "No name has this in it.",
				  style::plain, false });
	return lines;
}

std::vector<std::string> top_screen::inside_component(const top_row &row) const
{
	const component_usage &one = usage_of(last_)[row.index];
	std::vector<std::string> lines = {
		fmt::format("{} has {} in {}", escaped(one.name),
			    size_text(one.current),
			    count_text(row.amount.blocks, "block")),
		fmt::format("at most it had {}", size_text(one.max)),
		fmt::format("{} allocations, {} frees", one.allocs, one.frees),
	};

	for (const top_row &from : sites_)
		if (from.cells.size() > 1 && from.cells[1] == one.name)
			lines.push_back("  " + from.cells[0]);
	if (sites_.empty())
		lines.push_back("where: press d to read the detailed report");
	return lines;
}

std::vector<std::string> top_screen::inside_lock(const top_row &row) const
{
	const lock &one = best_locks(last_, row.mutex).locks[row.index];
	std::vector<std::string> lines = {
		fmt::format("{} {} of {}: its last calls, newest first",
			    row.mutex ? "mutex" : "semaphore",
			    escaped(one.name), escaped(one.component))
	};

	for (const lock_call &call : one.history)
		lines.push_back(history_line(call));
	return lines;
}

std::vector<std::string> top_screen::inside_queue(const top_row &row) const
{
	const queue &one = last_.queues.queues[row.index];
	const auto depth =
		static_cast<uint64_t>(std::max<int64_t>(one.depth, 0));

	return {
		fmt::format("queue {} of {}", escaped(one.name),
			    escaped(one.component)),
		fmt::format("{} in it now, at most {}, room for {}",
			    count_text(depth, "message"), one.max_seen,
			    one.max_depth),
		fmt::format("{} a message", size_text(one.message_size)),
	};
}

std::vector<top_line> top_screen::inside(const top_view &view) const
{
	std::vector<std::string> texts = { "It is gone." };
	std::vector<top_line> lines;

	for (const top_row &one : rows_)
		if (one.key == view.selected)
			switch (one.section) {
			case top_section::components:
				texts = inside_component(one);
				break;
			case top_section::sites:
				texts = one.more;
				break;
			case top_section::locks:
				texts = inside_lock(one);
				break;
			case top_section::queues:
				texts = inside_queue(one);
				break;
			}
	for (std::string &text : texts)
		lines.push_back({ std::move(text), style::plain, false });
	return lines;
}

std::vector<top_line> top_screen::frame(const top_view &view, size_t lines,
					size_t columns) const
{
	static constexpr const char *orders[] = { "size", "growth", "name" };
	std::vector<top_line> content;
	std::vector<top_line> out;
	size_t selected = 0;

	if (lines == 0)
		return out;
	if (view.help)
		for (const char *text : help_lines)
			content.push_back({ text, style::plain, false });
	else if (view.looking)
		content = inside(view);
	else
		content = body(view, &selected);

	out.push_back({ heading(), style::bold, false });

	/* The last line has the keys; what is between is moved as needed. */
	const size_t room = lines > 2 ? lines - 2 : 0;
	const size_t first = selected >= room && room ? selected - room + 1 : 0;

	for (size_t i = 0; i < room; ++i)
		out.push_back(first + i < content.size() ? content[first + i]
							 : top_line{});
	if (lines > 1) {
		std::string last;

		if (view.typing)
			last = "filter: " + escaped(view.filter) + "_";
		else if (!view.message.empty())
			last = escaped(view.message, 200);
		else
			last = fmt::
				format("{}sort: {}{}  ? help  q quit  s sort  / filter  d details  Space freeze",
				       view.frozen ? "FROZEN  " : "",
				       orders[static_cast<size_t>(view.order)],
				       view.filter.empty()
					       ? ""
					       : "  filter: " +
							 escaped(view.filter));
		out.push_back({ last, style::dim, false });
	}
	for (top_line &one : out)
		one.text = fitted(std::move(one.text), columns);
	return out;
}

} // namespace zorva
