// SPDX-License-Identifier: GPL-2.0
/*
 * What looks wrong, one kind of trouble after the other. A limit that is a
 * matter of judgement stands here, with its reason.
 */
#include "check.h"

#include "memory.h"
#include "print.h"
#include "waits_view.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <tuple>

namespace zorva
{
namespace
{

/* Nothing that a switch does under a lock takes as long. */
constexpr uint64_t held_too_long = 10; /* seconds */

/*
 * What looks like a leak in one report: so many blocks of one place, allocated
 * over so many seconds, as evenly as this. Less can be chance.
 */
constexpr size_t leak_blocks = 16;
constexpr uint64_t leak_seconds = 5;
constexpr size_t leak_parts = 4;

/* The kernel begins to look for memory well before there is none. */
constexpr uint64_t low_memory_percent = 5;

/* The module's own limits: timers stay for good. */
constexpr size_t most_timers = 1024;
constexpr size_t most_hr_timers = 64;
constexpr size_t timers_percent = 90;

class checker {
public:
	checker(const std::vector<const model *> &moments, const waits &of)
		: moments_(moments), now_(*moments.back()), waits_(of)
	{
	}

	std::vector<problem> all();

private:
	void deadlocks();
	void damage();
	void lost_locks();
	void queues();
	void queue_calls(const queue &of, problem &into) const;
	void growth_between();
	void growth_within();
	void held_long();
	void kernel_memory();
	void timers();
	void lost_threads();

	const std::vector<const model *> &moments_;
	const model &now_;
	const waits &waits_;
	std::vector<problem> found_;
	/* What is known to grow: its component, file and line. */
	std::set<std::tuple<std::string, std::string, int64_t>> grown_;
};

void checker::deadlocks()
{
	for (const deadlock &one : waits_.deadlocks) {
		problem its;
		std::vector<std::string> names;

		its.what = one.proven ? trouble::deadlock
				      : trouble::probable_deadlock;
		its.next = "waits";
		for (const wait_step &step : one.steps) {
			const actor &who = waits_.actors[step.actor];
			const lock_state &wanted = waits_.locks[step.lock];

			names.push_back(actor_text(who));
			its.details.push_back(fmt::format("{} wants {} at {}",
							  actor_text(who),
							  lock_label(wanted),
							  call_text(who)));
			if (who.at)
				its.sites.push_back(*who.at);
			if (!wanted.taken)
				continue;
			its.details.back() +=
				fmt::format("; {} took it at {}",
					    actor_text(
						    waits_.actors[step.next]),
					    site_text(wanted.taken->from));
			its.sites.push_back(wanted.taken->from);
		}
		its.title = fmt::format("{}{}: {} {}, for {}",
					one.proven ? "" : "probably a ",
					one.proven ? "DEADLOCK" : "deadlock",
					fmt::join(names, " and "),
					names.size() == 1
						? "waits for itself"
						: "wait for each other",
					elapsed_text(waits_.now, one.since));
		found_.push_back(std::move(its));
	}
}

void checker::damage()
{
	const memory_detail &of = now_.blocks;

	for (const zorva::damage &one : find_damage(of)) {
		const site &at = of.sites[one.torn->site];
		problem its;

		its.what = trouble::damaged_block;
		its.title =
			fmt::format("DAMAGED BLOCK of {}, allocated at {}",
				    escaped(of.components[one.torn->component]
						    .name),
				    site_text(at));
		its.sites.push_back(at);
		if (one.adjacent) {
			const site &below =
				of.sites[one.below ? one.below->site
						   : one.torn_below->site];

			its.details.push_back(
				fmt::format("its end was overwritten, or its start by the block below, of {}",
					    site_text(below)));
			its.sites.push_back(below);
		} else {
			its.details.push_back(
				"no block lies right below it: its own end was overwritten");
		}
		its.next = "torn";
		found_.push_back(std::move(its));
	}
	for (const mismatch &one : find_mismatches(of)) {
		problem its;

		its.what = trouble::miscounted;
		its.title = fmt::
			format("DAMAGED BLOCKS: of {}, {} counted and {} listed",
			       escaped(one.component->name),
			       one.component->delta, one.listed);
		its.details.emplace_back(
			"a header was overwritten together with its owner");
		its.next = "torn";
		found_.push_back(std::move(its));
	}
}

void checker::lost_locks()
{
	for (const lock_state &one : waits_.locks) {
		if (!one.which->mutex || one.holders.empty() ||
		    waits_.actors[one.holders[0].actor].alive)
			continue;

		problem its;

		its.what = trouble::lost_lock;
		its.title =
			fmt::format("LOST: {} is held by {}, which has ended",
				    lock_label(one),
				    actor_text(
					    waits_.actors[one.holders[0].actor]));
		if (one.taken) {
			its.details.push_back(
				fmt::format("taken at {}; nobody can give it",
					    site_text(one.taken->from)));
			its.sites.push_back(one.taken->from);
		}
		its.next = "locks";
		found_.push_back(std::move(its));
	}
}

/* Who filled a queue, and who should have emptied it. */
void checker::queue_calls(const queue &of, problem &into) const
{
	for (const lock_state &one : waits_.locks) {
		const bool room = one.which->name.ends_with("-tx");
		const lock_call *last = nullptr;

		if (one.which->mutex || one.queue != of.name)
			continue;
		for (const lock_call &call : one.which->history)
			if (!last && !call.give)
				last = &call;
		if (last) {
			into.details.push_back(
				fmt::format("last {} at {}, {} ago",
					    room ? "sent to" : "received from",
					    site_text(last->from),
					    elapsed_text(waits_.now,
							 last->time)));
			into.sites.push_back(last->from);
		}
		if (!room)
			continue;
		for (const holder &by : one.holders) {
			const actor &who = waits_.actors[by.actor];

			into.details.push_back(
				fmt::format("read by {}{}", actor_text(who),
					    who.lock
						    ? ", which waits for " +
							      lock_label(
								      waits_.locks
									      [*who.lock])
						    : ""));
		}
	}
}

void checker::queues()
{
	for (const queue &one : now_.queues.queues) {
		const bool full = one.max_depth && one.depth >= one.max_depth;
		problem its;

		if (!full && (!one.max_depth || one.max_seen < one.max_depth))
			continue;
		its.what = full ? trouble::full_queue : trouble::was_full;
		its.title =
			full ? fmt::format("FULL QUEUE '{}' of {}: {} of {} messages",
					   escaped(one.name),
					   escaped(one.component), one.depth,
					   one.max_depth)
			     : fmt::format("queue '{}' of {} was full once, and has {} of {} messages now",
					   escaped(one.name),
					   escaped(one.component), one.depth,
					   one.max_depth);
		its.next = "queues";
		if (full) {
			queue_calls(one, its);
			if (std::none_of(its.details.begin(), its.details.end(),
					 [](const std::string &text) {
						 return text.starts_with(
							 "last received");
					 }))
				its.details.emplace_back(
					"nobody has received from it");
		}
		found_.push_back(std::move(its));
	}
}

/*
 * What only grew from moment to moment, and in half of the steps at least: in
 * a log of many moments a single rise says little.
 */
void checker::growth_between()
{
	std::vector<const model *> moments;

	for (const model *one : moments_)
		if (one->blocks.state.whole && time_of(*one) &&
		    (moments.empty() ||
		     *time_of(*one) > *time_of(*moments.back())))
			moments.push_back(one);
	if (moments.size() < 2)
		return;

	const comparison found = compare(moments);

	for (const growth &one : found.grown) {
		problem its;

		if (!one.only_up() || one.rises * 2 < moments.size() - 1)
			continue;
		grown_.insert({ one.component, one.from.file, one.from.line });
		its.what = trouble::leak;
		its.title = fmt::format("GROWS: {} at {}, by {} in {}",
					escaped(one.component),
					site_text(one.from),
					growth_text(one.more_bytes()),
					duration_text(found.seconds()));
		its.details.push_back(
			fmt::format("now {}, {}; {}",
				    count_text(one.blocks.back(), "block"),
				    size_text(one.bytes.back()),
				    one.freed && !*one.freed
					    ? "none of the first ones is gone"
					    : "it never shrank"));
		its.sites.push_back(one.from);
		its.next = "leaks";
		found_.push_back(std::move(its));
	}
}

/* The blocks of one place, by when they were allocated. */
struct series {
	std::vector<uint64_t> times;
	uint64_t bytes = 0;
};

/* Whether they came one by one, all the time, and are all still there. */
bool is_steady(const std::vector<uint64_t> &times, uint64_t now)
{
	const auto [first, last] =
		std::minmax_element(times.begin(), times.end());
	size_t parts[leak_parts] = {};

	if (times.size() < leak_blocks || *last > now ||
	    now - *first < leak_seconds)
		return false;
	for (const uint64_t time : times)
		++parts[std::min<uint64_t>((time - *first) * leak_parts /
						   (now - *first + 1),
					   leak_parts - 1)];
	return std::all_of(parts, parts + leak_parts, [&](size_t count) {
		return count > 0 && count >= times.size() / leak_parts / 4;
	});
}

/*
 * One report alone: a place whose blocks are of all ages, the newest of now.
 * A table that fills up looks the same, so this is no more than probable.
 */
void checker::growth_within()
{
	const memory_detail &of = now_.blocks;
	std::map<std::pair<uint16_t, uint32_t>, series> places;

	if (!of.state.now)
		return;
	for (const block &one : of.blocks) {
		series &its = places[{ one.component, one.site }];

		its.times.push_back(one.time);
		its.bytes += one.size;
	}
	for (const auto &[place, its] : places) {
		const component_usage &owner = of.components[place.first];
		const site &at = of.sites[place.second];
		problem one;

		/* What was freed in bulk is no leak. */
		if (grown_.count({ owner.name, at.file, at.line }) ||
		    !is_steady(its.times, *of.state.now) ||
		    owner.current < owner.max - owner.max / 16)
			continue;
		one.what = trouble::leak;
		one.title =
			fmt::format("GROWS, probably a leak: {} at {}, {}, {}",
				    escaped(owner.name), site_text(at),
				    count_text(its.times.size(), "block"),
				    size_text(its.bytes));
		one.details.push_back(
			fmt::format("they came one by one for {}, up to now, and none is gone",
				    duration_text(
					    *of.state.now -
					    *std::min_element(its.times.begin(),
							      its.times.end()))));
		one.sites.push_back(at);
		one.next = "leaks";
		found_.push_back(std::move(one));
	}
}

void checker::held_long()
{
	std::set<size_t> stuck;

	for (const deadlock &one : waits_.deadlocks)
		for (const wait_step &step : one.steps)
			stuck.insert(step.lock);
	for (size_t i = 0; i < waits_.locks.size(); ++i) {
		const lock_state &one = waits_.locks[i];
		problem its;

		if (!one.which->mutex || !one.taken || !waits_.now ||
		    one.waiters.empty() || stuck.count(i) ||
		    one.taken->time + held_too_long > *waits_.now)
			continue;
		its.what = trouble::held_long;
		its.title =
			fmt::format("{} is held for {}, and {} for it",
				    lock_label(one),
				    elapsed_text(waits_.now, one.taken->time),
				    count_text(one.waiters.size(),
					       "thread waits", "threads wait"));
		its.sites.push_back(one.taken->from);
		if (!one.holders.empty()) {
			const actor &who = waits_.actors[one.holders[0].actor];

			its.details.push_back(
				fmt::format("{} took it at {}{}",
					    actor_text(who),
					    site_text(one.taken->from),
					    who.lock
						    ? ", and waits for " +
							      lock_label(
								      waits_.locks
									      [*who.lock])
						    : ""));
		}
		its.next = "waits";
		found_.push_back(std::move(its));
	}
}

void checker::kernel_memory()
{
	std::optional<uint64_t> total, left = available_memory(now_);

	for (const memory_figure &one : now_.kernel_memory)
		if (one.name == "MemTotal")
			total = one.bytes;
	if (!total || !left || *left > *total / 100 * low_memory_percent)
		return;

	problem its;

	its.what = trouble::low_memory;
	its.title = fmt::format("LITTLE MEMORY: the kernel has {} of {} left",
				size_text(*left), size_text(*total));
	its.next = "mem --by site --top 5";
	found_.push_back(std::move(its));
}

void checker::timers()
{
	const struct {
		const timer_report &report;
		size_t most;
		const char *kind;
	} kinds[] = { { now_.timers, most_timers, "tick timers" },
		      { now_.hr_timers, most_hr_timers,
			"high-resolution timers" } };

	for (const auto &kind : kinds) {
		const size_t made = kind.report.timers.size();
		problem its;

		if (made < kind.most * timers_percent / 100)
			continue;
		its.what = trouble::timers_gone;
		its.title = fmt::format("TIMERS: {} of at most {} {} are made",
					made, kind.most, kind.kind);
		its.details.emplace_back(
			"they cannot be deleted: somebody makes one again and again");
		its.next = "timers";
		found_.push_back(std::move(its));
	}
}

void checker::lost_threads()
{
	std::set<int64_t> listed;

	for (const thread &one : now_.threads.threads)
		listed.insert(one.pid);
	for (const actor &one : waits_.actors) {
		problem its;

		if (one.alive || !listed.count(one.pid))
			continue;
		its.what = trouble::lost_thread;
		its.title = fmt::format("{} of {} is listed, and has ended",
					actor_text(one),
					escaped(one.component));
		its.next = "threads";
		found_.push_back(std::move(its));
	}
}

std::vector<problem> checker::all()
{
	deadlocks();
	damage();
	lost_locks();
	queues();
	growth_between();
	growth_within();
	held_long();
	kernel_memory();
	timers();
	lost_threads();
	std::stable_sort(found_.begin(), found_.end(),
			 [](const problem &a, const problem &b) {
				 return a.what < b.what;
			 });
	return std::move(found_);
}

} // namespace

const char *trouble_name(trouble what)
{
	static constexpr const char *names[] = {
		"deadlock",    "damaged_block",
		"miscounted",  "probable_deadlock",
		"lost_lock",   "full_queue",
		"leak",	       "held_long",
		"low_memory",  "timers_gone",
		"lost_thread", "was_full",
	};

	return names[static_cast<size_t>(what)];
}

std::vector<problem> find_problems(const std::vector<const model *> &moments,
				   const waits &of)
{
	return checker(moments, of).all();
}

} // namespace zorva
