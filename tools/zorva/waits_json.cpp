// SPDX-License-Identifier: GPL-2.0
/* Locks, threads and who waits for whom, as JSON. */
#include "print.h"
#include "waits_view.h"

#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

const char *kind_name(wait_kind kind)
{
	switch (kind) {
	case wait_kind::none:
		return "none";
	case wait_kind::mutex:
		return "mutex";
	case wait_kind::semaphore:
		return "semaphore";
	case wait_kind::room:
		return "room";
	case wait_kind::message:
		return "message";
	case wait_kind::event:
		return "event";
	case wait_kind::wake_up:
		return "wake_up";
	case wait_kind::unknown:
		return "unknown";
	}
	return "unknown";
}

json site_json(const site &at)
{
	return { { "file", json_text(at.file) }, { "line", at.line } };
}

void add_sureness(json &to, const finding &sure)
{
	to["proven"] = sure.proven;
	if (!sure.proven && !sure.why.empty())
		to["why"] = json_text(sure.why);
}

template <class Value>
void add_seconds(json &to, const char *name, const Value &value)
{
	if (value)
		to[name] = *value;
}

} // namespace

json locks_json(const reading &from, const waits &of)
{
	json all = json::array();

	for (const lock_state &one : of.locks) {
		const lock &its = *one.which;
		json shown = json::object();

		shown["kind"] = its.mutex ? "mutex" : "semaphore";
		shown["name"] = json_text(its.name);
		shown["component"] = json_text(its.component);
		shown["component_id"] = its.component_id;
		if (its.index)
			shown["index"] = *its.index;
		if (!one.queue.empty())
			shown["queue"] = json_text(one.queue);
		shown["taken"] = its.taken;
		if (one.taken) {
			json taken = site_json(one.taken->from);

			taken["since_seconds"] = one.taken->time;
			add_sureness(taken, one.taken_sure);
			shown["taken_at"] = std::move(taken);
		}
		shown["holders"] = json::array();
		for (const holder &by : one.holders) {
			json holds = { { "pid", of.actors[by.actor].pid } };

			add_sureness(holds, by.sure);
			shown["holders"].push_back(std::move(holds));
		}
		shown["waiters"] = json::array();
		for (const size_t waiter : one.waiters)
			shown["waiters"].push_back(of.actors[waiter].pid);
		shown["at"] = json_place(from, its.at);
		all.push_back(std::move(shown));
	}
	return all;
}

json actors_json(const reading &from, const waits &of)
{
	json all = json::array();

	for (const actor &one : of.actors) {
		json shown = json::object();

		shown["pid"] = one.pid;
		shown["name"] = json_text(one.name);
		if (!one.component.empty())
			shown["component"] = json_text(one.component);
		shown["alive"] = one.alive;
		shown["blocked"] = one.blocked;
		shown["in"] = kind_name(one.kind);
		if (!one.where.empty())
			shown["function"] = json_text(one.where);
		if (one.lock) {
			json wait = json::object();

			/* An index into "locks". */
			wait["lock"] = *one.lock;
			add_seconds(wait, "since_seconds", one.since);
			add_seconds(wait, "timeout_ms", one.timeout_ms);
			add_sureness(wait, one.sure);
			shown["waits"] = std::move(wait);
		}
		if (one.at)
			shown["call"] = site_json(*one.at);
		if (one.seen)
			shown["at"] = json_place(from, one.seen->at);
		all.push_back(std::move(shown));
	}
	return all;
}

json deadlocks_json(const waits &of)
{
	json all = json::array();

	for (const deadlock &one : of.deadlocks) {
		json shown = json::object();

		shown["proven"] = one.proven;
		add_seconds(shown, "since_seconds", one.since);
		shown["steps"] = json::array();
		for (const wait_step &step : one.steps)
			shown["steps"].push_back(
				{ { "pid", of.actors[step.actor].pid },
				  { "lock", step.lock },
				  { "waits_for", of.actors[step.next].pid } });
		all.push_back(std::move(shown));
	}
	return all;
}

} // namespace zorva
