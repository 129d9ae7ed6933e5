// SPDX-License-Identifier: GPL-2.0
/*
 * A family of metrics after the other, each with all of its samples. No two
 * samples of a family may have the same labels, and nothing keeps a firmware
 * from giving two queues the same name: the second one is told by a label
 * "copy".
 */
#include "metrics.h"

#include "memory.h"
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

struct label {
	std::string_view name;
	std::string value; /* as print.h's escaped() has it */
};

/* In the quotes of a label. */
void append_quoted(std::string &to, std::string_view text)
{
	to += '"';
	for (const char c : text) {
		if (c == '"' || c == '\\')
			to += '\\';
		to += c;
	}
	to += '"';
}

template <std::integral Number>
void append_number(std::string &to, Number value)
{
	char digits[24];

	to.append(digits,
		  std::to_chars(digits, digits + sizeof(digits), value).ptr);
}

std::string place_of(const site &at)
{
	std::string text = escaped(at.file) + ':';

	append_number(text, at.line);
	return text;
}

/*
 * The labels of what there is one of each, as texts. Of two that are the same
 * the second has one more label.
 */
class label_texts {
public:
	std::string add(const std::vector<label> &labels)
	{
		std::string text;

		for (const label &one : labels) {
			if (!text.empty())
				text += ',';
			text += one.name;
			text += '=';
			append_quoted(text, one.value);
		}

		const unsigned copy = ++seen_[text];

		if (copy > 1) {
			text += ",copy=\"";
			append_number(text, copy);
			text += '"';
		}
		return text;
	}

private:
	std::map<std::string, unsigned> seen_;
};

class exposition {
public:
	/* @unit: what the name ends with, or "" */
	void family(std::string_view name, std::string_view type,
		    std::string_view unit, std::string_view help)
	{
		name_ = name;
		suffix_ = type == "counter" ? "_total" : "";
		head("# TYPE ", type);
		if (!unit.empty())
			head("# UNIT ", unit);
		head("# HELP ", help);
	}

	template <std::integral Number>
	void sample(std::string_view labels, Number value)
	{
		text_ += name_;
		text_ += suffix_;
		if (!labels.empty()) {
			text_ += '{';
			text_ += labels;
			text_ += '}';
		}
		text_ += ' ';
		append_number(text_, value);
		text_ += '\n';
	}

	std::string end()
	{
		text_ += "# EOF\n";
		return std::move(text_);
	}

private:
	void head(std::string_view what, std::string_view text)
	{
		text_ += what;
		text_ += name_;
		text_ += ' ';
		text_ += text;
		text_ += '\n';
	}

	std::string text_;
	std::string_view name_, suffix_;
};

void add_components(exposition &to, const model &from)
{
	const struct {
		const char *name, *type, *unit, *help;
		uint32_t component_usage::*figure;
	} families[] = {
		{ "zorva_component_used_bytes", "gauge", "bytes",
		  "What the live blocks of a component were asked with.",
		  &component_usage::current },
		{ "zorva_component_peak_bytes", "gauge", "bytes",
		  "The most that the component has ever used.",
		  &component_usage::max },
		{ "zorva_component_blocks", "gauge", "",
		  "Live blocks of a component.", &component_usage::delta },
		{ "zorva_component_allocations", "counter", "",
		  "Allocations of a component since the module was loaded.",
		  &component_usage::allocs },
		{ "zorva_component_frees", "counter", "",
		  "Frees of a component since the module was loaded.",
		  &component_usage::frees },
	};

	const std::vector<component_usage> &components = usage_of(from);
	std::vector<std::string> labels;
	label_texts texts;

	if (components.empty())
		return;
	for (const component_usage &its : components)
		labels.push_back(
			texts.add({ { "component", escaped(its.name) } }));
	for (const auto &one : families) {
		to.family(one.name, one.type, one.unit, one.help);
		for (size_t i = 0; i < components.size(); ++i)
			to.sample(labels[i], components[i].*one.figure);
	}
}

void add_mutexes(exposition &to, const model &from)
{
	struct held {
		const lock_state *state;
		std::string labels;
	};
	std::vector<held> all;
	label_texts texts;

	if (!best_locks(from, true).state.present)
		return;

	/* Who holds what, by the histories alone. */
	const waits found = find_waits(from, {});

	for (const lock_state &one : found.locks) {
		const lock &its = *one.which;

		if (its.mutex && its.taken)
			all.push_back(
				{ &one,
				  texts.add(
					  { { "component",
					      escaped(its.component) },
					    { "mutex", escaped(its.name) },
					    { "index",
					      std::to_string(its.index.value_or(
						      0)) } }) });
	}
	to.family("zorva_mutex_held_seconds", "gauge", "seconds",
		  "For how long a mutex that is locked has been so.");
	for (const held &one : all) {
		const lock_call *const taken = one.state->taken;
		std::string labels = one.labels + ",holder=";

		if (!taken || !found.now)
			continue;
		append_quoted(labels, escaped(one.state->which->locker_name));
		labels += ",taken_at=";
		append_quoted(labels, place_of(taken->from));
		to.sample(labels,
			  *found.now - std::min(*found.now, taken->time));
	}
	to.family("zorva_mutex_waiting", "gauge", "",
		  "Takes of a locked mutex that still wait, of the last eight calls.");
	for (const held &one : all) {
		const size_t open =
			open_takes_of(*one.state->which, found.now).takes.size();

		to.sample(one.labels, open ? open - 1 : 0);
	}
	to.family("zorva_deadlocks", "gauge", "",
		  "Circles of threads that wait for each other, as the histories of the mutexes have it.");
	to.sample("", found.deadlocks.size());
}

void add_queues(exposition &to, const model &from)
{
	const std::vector<queue> &queues = from.queues.queues;
	const struct {
		const char *name, *help;
		int64_t (*figure)(const queue &of);
	} families[] = {
		{ "zorva_queue_messages", "Messages in a queue.",
		  [](const queue &of) {
			  return of.depth;
		  } },
		{ "zorva_queue_peak_messages",
		  "The most messages that were in a queue at once.",
		  [](const queue &of) {
			  return of.max_seen;
		  } },
		{ "zorva_queue_capacity_messages",
		  "How many messages a queue has room for.",
		  [](const queue &of) {
			  return static_cast<int64_t>(of.max_depth);
		  } },
	};

	std::vector<std::string> labels;
	label_texts texts;

	if (!from.queues.state.present)
		return;
	for (const queue &its : queues)
		labels.push_back(
			texts.add({ { "component", escaped(its.component) },
				    { "queue", escaped(its.name) } }));
	for (const auto &one : families) {
		to.family(one.name, "gauge", "", one.help);
		for (size_t i = 0; i < queues.size(); ++i)
			to.sample(labels[i], one.figure(queues[i]));
	}
}

void add_damage(exposition &to, const model &from)
{
	const memory_detail &of = from.blocks;
	std::map<std::pair<uint16_t, uint32_t>, size_t> places;
	label_texts torn, miscounted;

	if (!of.state.present)
		return;
	for (const torn_block &one : of.torn)
		++places[{ one.component, one.site }];
	to.family("zorva_torn_blocks", "gauge", "",
		  "Damaged blocks, by who allocated them.");
	for (const auto &[place, count] : places)
		to.sample(torn.add(
				  { { "component",
				      escaped(of.components[place.first].name) },
				    { "allocated_at",
				      place_of(of.sites[place.second]) } }),
			  count);
	to.family("zorva_miscounted_blocks", "gauge", "",
		  "Blocks that are counted and not listed: their headers were overwritten.");
	for (const mismatch &one : find_mismatches(of))
		to.sample(miscounted.add({ { "component",
					     escaped(one.component->name) } }),
			  static_cast<int64_t>(one.component->delta) -
				  static_cast<int64_t>(one.listed));
	to.family("zorva_checked_blocks", "gauge", "",
		  "Blocks that were looked at for damage.");
	to.sample("", of.blocks.size() + of.torn.size());
}

} // namespace

std::string metrics_text(const reading &from, bool torn)
{
	const model &now = from.last();
	exposition to;

	if (now.uptime_ms) {
		to.family("zorva_uptime_seconds", "gauge", "seconds",
			  "Time since the switch was started.");
		to.sample("", *now.uptime_ms / 1000);
	}
	add_components(to, now);
	add_mutexes(to, now);
	add_queues(to, now);
	if (torn)
		add_damage(to, now);
	to.family("zorva_unreadable_lines", "gauge", "",
		  "Lines of the reports that could not be read.");
	to.sample("", from.errors);
	return to.end();
}

} // namespace zorva
