// SPDX-License-Identifier: GPL-2.0
/*
 * A family of metrics after the other, each with all of its samples. No two
 * samples of a family may have the same labels, and nothing keeps a firmware
 * from giving two queues the same name: the second one is told by a label
 * "copy".
 *
 * This is asked for every few seconds, and the board has to make each text
 * anew: what is known before stands here as it is printed.
 */
#include "metrics.h"

#include "memory.h"
#include "plain.h"
#include "print.h"
#include "standing.h"
#include "waits.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <vector>

namespace zorva
{
namespace
{

template <std::integral Number>
void append_number(std::string &to, Number value)
{
	char digits[24];

	to.append(digits,
		  std::to_chars(digits, digits + sizeof(digits), value).ptr);
}

/* As print.h's escaped() has it, for the quotes of a label. */
void append_escaped(std::string &to, std::string_view text)
{
	if (is_shown_as_it_is(text) && text.find('"') == text.npos) {
		to += text;
		return;
	}
	for (const char c : escaped(text)) {
		if (c == '"' || c == '\\')
			to += '\\';
		to += c;
	}
}

void append_place(std::string &to, const site &at)
{
	append_escaped(to, at.file);
	to += ':';
	append_number(to, at.line);
}

/* The labels of what there is one of each. */
class label_list {
public:
	label_list()
	{
		constexpr size_t mostly = 16;

		text_.reserve(mostly * 48);
		begins_.reserve(mostly);
	}

	/* The text that the labels of the next one are appended to. */
	std::string &next()
	{
		begins_.push_back(text_.size());
		return text_;
	}

	/* After the last one: of two that are the same the second is a copy. */
	void tell_copies_apart()
	{
		std::vector<size_t> order(begins_.size());
		const auto same = [&](size_t a, size_t b) {
			return (*this)[a] == (*this)[b];
		};

		for (size_t i = 0; i < order.size(); ++i)
			order[i] = i;
		std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
			const std::string_view one = (*this)[a];
			const std::string_view other = (*this)[b];

			if (one.size() != other.size())
				return one.size() < other.size();

			const int differ = one.compare(other);

			return differ ? differ < 0 : a < b;
		});
		for (size_t i = 1; i < order.size(); ++i) {
			if (!same(order[i - 1], order[i]))
				continue;
			copies_.resize(order.size(), 1);
			copies_[order[i]] = copies_[order[i - 1]] + 1;
		}
	}

	std::string_view operator[](size_t i) const
	{
		const size_t end = i + 1 < begins_.size() ? begins_[i + 1]
							  : text_.size();

		return std::string_view(text_).substr(begins_[i],
						      end - begins_[i]);
	}

	void append(std::string &to, size_t i) const
	{
		to += (*this)[i];
		if (copies_.empty() || copies_[i] == 1)
			return;
		to += ",copy=\"";
		append_number(to, copies_[i]);
		to += '"';
	}

private:
	std::string text_;
	std::vector<size_t> begins_;
	std::vector<unsigned> copies_; /* empty: there are none */
};

class exposition {
public:
	exposition()
	{
		constexpr size_t mostly = 16 * 1024;

		text_.reserve(mostly);
	}

	/* What stands before a family's samples. */
	void head(std::string_view text)
	{
		text_ += text;
	}

	/* name: with the brace that opens its labels */
	template <std::integral Number>
	void sample(std::string_view name, const label_list &labels, size_t i,
		    Number value)
	{
		text_ += name;
		labels.append(text_, i);
		end_labels(value);
	}

	template <std::integral Number>
	void end_labels(Number value)
	{
		char text[28] = "} ";

		end_line(text, text + 2, value);
	}

	template <std::integral Number>
	void end_sample(Number value)
	{
		char text[28];

		end_line(text, text, value);
	}

	/* For what sample() does not know. */
	std::string &text()
	{
		return text_;
	}

	std::string end()
	{
		text_ += "# EOF\n";
		return std::move(text_);
	}

private:
	template <std::integral Number, size_t Size>
	void end_line(char (&text)[Size], char *number, Number value)
	{
		char *const end =
			std::to_chars(number, text + Size - 1, value).ptr;

		*end = '\n';
		text_.append(text, end + 1);
	}

	std::string text_;
};

void add_components(exposition &to, const model &from)
{
	static constexpr struct {
		std::string_view head, name;
		uint32_t component_usage::*figure;
	} families[] = {
		{ "# TYPE zorva_component_used_bytes gauge\n"
		  "# UNIT zorva_component_used_bytes bytes\n"
		  "# HELP zorva_component_used_bytes What the live blocks of a component were asked with.\n",
		  "zorva_component_used_bytes{", &component_usage::current },
		{ "# TYPE zorva_component_peak_bytes gauge\n"
		  "# UNIT zorva_component_peak_bytes bytes\n"
		  "# HELP zorva_component_peak_bytes The most that the component has ever used.\n",
		  "zorva_component_peak_bytes{", &component_usage::max },
		{ "# TYPE zorva_component_blocks gauge\n"
		  "# HELP zorva_component_blocks Live blocks of a component.\n",
		  "zorva_component_blocks{", &component_usage::delta },
		{ "# TYPE zorva_component_allocations counter\n"
		  "# HELP zorva_component_allocations Allocations of a component since the module was loaded.\n",
		  "zorva_component_allocations_total{",
		  &component_usage::allocs },
		{ "# TYPE zorva_component_frees counter\n"
		  "# HELP zorva_component_frees Frees of a component since the module was loaded.\n",
		  "zorva_component_frees_total{", &component_usage::frees },
	};

	const std::vector<component_usage> &components = usage_of(from);
	label_list labels;

	if (components.empty())
		return;
	for (const component_usage &its : components) {
		std::string &text = labels.next();

		text += "component=\"";
		append_escaped(text, its.name);
		text += '"';
	}
	labels.tell_copies_apart();
	for (const auto &one : families) {
		to.head(one.head);
		for (size_t i = 0; i < components.size(); ++i)
			to.sample(one.name, labels, i,
				  components[i].*one.figure);
	}
}

/* Of the mutexes that are locked, when there are any. */
void add_held(exposition &to, const waits &found)
{
	std::vector<const lock_state *> held;
	label_list labels;

	for (const lock_state &one : found.locks) {
		const lock &its = *one.which;

		if (!its.mutex || !its.taken)
			continue;
		held.push_back(&one);

		std::string &text = labels.next();

		text += "component=\"";
		append_escaped(text, its.component);
		text += "\",mutex=\"";
		append_escaped(text, its.name);
		text += "\",index=\"";
		append_number(text, its.index.value_or(0));
		text += '"';
	}
	labels.tell_copies_apart();
	to.head("# TYPE zorva_mutex_held_seconds gauge\n"
		"# UNIT zorva_mutex_held_seconds seconds\n"
		"# HELP zorva_mutex_held_seconds For how long a mutex that is locked has been so.\n");
	for (size_t i = 0; i < held.size(); ++i) {
		const lock_call *const taken = held[i]->taken;
		std::string &text = to.text();

		if (!taken || !found.now)
			continue;
		text += "zorva_mutex_held_seconds{";
		labels.append(text, i);
		text += ",holder=\"";
		append_escaped(text, held[i]->which->locker_name);
		text += "\",taken_at=\"";
		append_place(text, taken->from);
		text += '"';
		to.end_labels(*found.now - std::min(*found.now, taken->time));
	}
	to.head("# TYPE zorva_mutex_waiting gauge\n"
		"# HELP zorva_mutex_waiting Takes of a locked mutex that still wait, of the last eight calls.\n");
	for (size_t i = 0; i < held.size(); ++i) {
		const size_t open =
			open_takes_of(*held[i]->which, found.now).takes.size();

		to.sample("zorva_mutex_waiting{", labels, i,
			  open ? open - 1 : 0);
	}
	to.head("# TYPE zorva_deadlocks gauge\n"
		"# HELP zorva_deadlocks Circles of threads that wait for each other, as the histories of the mutexes have it.\n"
		"zorva_deadlocks ");
	to.end_sample(found.deadlocks.size());
}

void add_mutexes(exposition &to, const model &from)
{
	const lock_report &mutexes = best_locks(from, true);

	if (!mutexes.state.present)
		return;
	/* Who holds what, by the histories alone; mostly nobody anything. */
	if (std::any_of(mutexes.locks.begin(), mutexes.locks.end(),
			[](const lock &one) {
				return one.taken;
			}))
		add_held(to, find_waits(from, {}));
	else
		add_held(to, {});
}

void add_queues(exposition &to, const model &from)
{
	const std::vector<queue> &queues = from.queues.queues;
	static constexpr struct {
		std::string_view head, name;
		int64_t (*figure)(const queue &of);
	} families[] = {
		{ "# TYPE zorva_queue_messages gauge\n"
		  "# HELP zorva_queue_messages Messages in a queue.\n",
		  "zorva_queue_messages{",
		  [](const queue &of) {
			  return of.depth;
		  } },
		{ "# TYPE zorva_queue_peak_messages gauge\n"
		  "# HELP zorva_queue_peak_messages The most messages that were in a queue at once.\n",
		  "zorva_queue_peak_messages{",
		  [](const queue &of) {
			  return of.max_seen;
		  } },
		{ "# TYPE zorva_queue_capacity_messages gauge\n"
		  "# HELP zorva_queue_capacity_messages How many messages a queue has room for.\n",
		  "zorva_queue_capacity_messages{",
		  [](const queue &of) {
			  return static_cast<int64_t>(of.max_depth);
		  } },
	};

	label_list labels;

	if (!from.queues.state.present)
		return;
	for (const queue &its : queues) {
		std::string &text = labels.next();

		text += "component=\"";
		append_escaped(text, its.component);
		text += "\",queue=\"";
		append_escaped(text, its.name);
		text += '"';
	}
	labels.tell_copies_apart();
	for (const auto &one : families) {
		to.head(one.head);
		for (size_t i = 0; i < queues.size(); ++i)
			to.sample(one.name, labels, i, one.figure(queues[i]));
	}
}

void add_damage(exposition &to, const model &from)
{
	const memory_detail &of = from.blocks;
	std::map<std::pair<uint16_t, uint32_t>, size_t> places;
	label_list torn, miscounted;
	std::vector<int64_t> missing;
	size_t i = 0;

	if (!of.state.present)
		return;
	for (const torn_block &one : of.torn)
		++places[{ one.component, one.site }];
	for (const auto &[place, count] : places) {
		std::string &text = torn.next();

		text += "component=\"";
		append_escaped(text, of.components[place.first].name);
		text += "\",allocated_at=\"";
		append_place(text, of.sites[place.second]);
		text += '"';
	}
	torn.tell_copies_apart();
	to.head("# TYPE zorva_torn_blocks gauge\n"
		"# HELP zorva_torn_blocks Damaged blocks, by who allocated them.\n");
	for (const auto &[place, count] : places)
		to.sample("zorva_torn_blocks{", torn, i++, count);

	for (const mismatch &one : find_mismatches(of)) {
		std::string &text = miscounted.next();

		text += "component=\"";
		append_escaped(text, one.component->name);
		text += '"';
		missing.push_back(static_cast<int64_t>(one.component->delta) -
				  static_cast<int64_t>(one.listed));
	}
	miscounted.tell_copies_apart();
	to.head("# TYPE zorva_miscounted_blocks gauge\n"
		"# HELP zorva_miscounted_blocks Blocks that are counted and not listed: their headers were overwritten.\n");
	for (i = 0; i < missing.size(); ++i)
		to.sample("zorva_miscounted_blocks{", miscounted, i,
			  missing[i]);
	to.head("# TYPE zorva_checked_blocks gauge\n"
		"# HELP zorva_checked_blocks Blocks that were looked at for damage.\n"
		"zorva_checked_blocks ");
	to.end_sample(of.blocks.size() + of.torn.size());
}

} // namespace

std::string metrics_text(const reading &from, bool torn)
{
	const model &now = from.last();
	exposition to;

	if (now.uptime_ms) {
		to.head("# TYPE zorva_uptime_seconds gauge\n"
			"# UNIT zorva_uptime_seconds seconds\n"
			"# HELP zorva_uptime_seconds Time since the switch was started.\n"
			"zorva_uptime_seconds ");
		to.end_sample(*now.uptime_ms / 1000);
	}
	add_components(to, now);
	add_mutexes(to, now);
	add_queues(to, now);
	if (torn)
		add_damage(to, now);
	to.head("# TYPE zorva_unreadable_lines gauge\n"
		"# HELP zorva_unreadable_lines Lines of the reports that could not be read.\n"
		"zorva_unreadable_lines ");
	to.end_sample(from.errors);
	return to.end();
}

} // namespace zorva
