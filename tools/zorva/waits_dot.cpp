// SPDX-License-Identifier: GPL-2.0
/*
 * The graph of who waits for whom: threads are boxes, locks are ellipses. What
 * is not proven is dashed, what is part of a deadlock is red.
 */
#include "print.h"
#include "waits_view.h"

#include <fmt/format.h>
#include <initializer_list>
#include <set>

namespace zorva
{
namespace
{

/*
 * A label of several lines, in quotes. Graphviz would take "&lt;" for a sign
 * of its own, so that each "&" is one.
 */
std::string label(std::initializer_list<std::string> lines)
{
	std::string quoted = "\"";

	for (const std::string &line : lines) {
		if (line.empty())
			continue;
		if (quoted.size() > 1)
			quoted += "\\n";
		for (const char c : line) {
			if (c == '"' || c == '\\')
				quoted += '\\';
			quoted += c;
			if (c == '&')
				quoted += "amp;";
		}
	}
	return quoted + '"';
}

const char *holds_text(const lock_state &of)
{
	if (of.which->mutex)
		return "held by";
	return of.queue.empty() ? "a unit is out at" : "is read by";
}

class graph {
public:
	explicit graph(const waits &of) : of_(of)
	{
		for (const deadlock &one : of.deadlocks)
			for (const wait_step &step : one.steps) {
				stuck_.insert(step.actor);
				held_.insert({ step.lock, step.next });
			}
	}

	std::string text();

private:
	void add_actor(size_t which);
	void add_wait(size_t which);
	void add_lock(size_t which);

	static const char *look_of(bool stuck, bool proven)
	{
		if (stuck)
			return proven ? ", color=red, penwidth=2"
				      : ", color=red, penwidth=2, style=dashed";
		return proven ? "" : ", style=dashed";
	}

	const waits &of_;
	std::set<size_t> stuck_;
	std::set<std::pair<size_t, size_t>> held_; /* the lock, by whom */
	std::set<size_t> shown_;
	std::string text_;
};

void graph::add_actor(size_t which)
{
	const actor &one = of_.actors[which];

	if (!shown_.insert(which).second)
		return;
	text_ += fmt::format("\tt{} [shape=box, label={}{}];\n", which,
			     label({ actor_text(one), escaped(one.component),
				     one.alive ? "" : "has ended" }),
			     stuck_.count(which) ? ", color=red, penwidth=2"
						 : "");
}

void graph::add_wait(size_t which)
{
	const actor &one = of_.actors[which];

	text_ += fmt::format("\tt{} -> l{} [label={}{}];\n", which, *one.lock,
			     label({ "waits at " + call_text(one),
				     "for " + elapsed_text(of_.now, one.since),
				     one.sure.proven ? "" : "probably" }),
			     look_of(stuck_.count(which), one.sure.proven));
}

void graph::add_lock(size_t which)
{
	const lock_state &one = of_.locks[which];

	text_ += fmt::format("\tl{} [label={}];\n", which,
			     label({ lock_label(one),
				     escaped(one.which->component) }));
	for (const holder &by : one.holders) {
		add_actor(by.actor);
		text_ += fmt::
			format("\tl{} -> t{} [label={}{}];\n", which, by.actor,
			       label({ holds_text(one),
				       one.taken
					       ? "taken at " +
							 site_text(
								 one.taken->from)
					       : "",
				       by.sure.proven ? "" : "probably" }),
			       look_of(held_.count({ which, by.actor }),
				       by.sure.proven));
	}
}

std::string graph::text()
{
	text_ = "digraph waits {\n"
		"\tgraph [rankdir=LR];\n"
		"\tnode [fontname=\"sans-serif\"];\n"
		"\tedge [fontname=\"sans-serif\", fontsize=10];\n";
	for (size_t i = 0; i < of_.locks.size(); ++i) {
		const lock_state &one = of_.locks[i];

		if (one.waiters.empty() &&
		    !(one.which->mutex && one.which->taken))
			continue;
		add_lock(i);
		for (const size_t waiter : one.waiters) {
			add_actor(waiter);
			add_wait(waiter);
		}
	}
	return text_ + "}\n";
}

} // namespace

std::string waits_dot(const waits &of)
{
	return graph(of).text();
}

} // namespace zorva
