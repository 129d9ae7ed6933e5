// SPDX-License-Identifier: GPL-2.0
/*
 * Puts threads and locks together.
 *
 * Each thread that stands in a take has candidates: the locks in whose history
 * such a take may still wait. With the line of its call there is mostly one.
 * Without it, counting helps: a lock has only so many takes that wait, and each
 * thread waits in one place. What no other way of assigning allows is proven;
 * the rest is chosen by what speaks for it, and says so.
 */
#include "waits.h"

#include "circles.h"
#include "print.h"
#include "standing.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>

namespace zorva
{
namespace
{

/* The kernel's figure for a sleep that no signal ends. */
constexpr int64_t state_blocked = 2;

/* A wait in a lock whose history shows no such take would be too long ago. */
struct candidate {
	size_t lock = 0;
	const lock_call *take = nullptr; /* null: older than the history */
};

/* Of an actor: where it stands, and what it may wait for. */
struct question {
	size_t actor = 0;
	standing stands;
	std::vector<site> calls; /* by the lines of its module */
	std::vector<candidate> candidates;
};

constexpr size_t unlimited = SIZE_MAX;

/*
 * What counting may cost, about, in steps: no firmware needs more, and a text
 * that was made to does not get it.
 */
constexpr double most_steps = 3e8;
constexpr size_t most_looked_at = 64; /* without counting */

class solver {
public:
	solver(const model &from, const code_lines &lines)
		: from_(from), lines_(lines)
	{
	}

	waits solve();

private:
	void collect_locks();
	void collect_actors();
	actor &actor_of(int64_t pid);
	void place_actor(actor &one);

	void ask();
	void add_candidates(question &asked);
	bool may_be(const question &asked, const lock_state &state) const;
	const lock_call *matching_take(const question &asked,
				       size_t lock) const;

	void answer();
	void answer_one(question &asked);
	bool can_assign(const question *fixed, const candidate *to) const;
	bool find_place(size_t asked, std::vector<bool> &tried,
			std::vector<std::vector<size_t>> &in,
			const question *fixed) const;
	void settle(question &asked, const candidate &chosen, finding sure);
	const lock_call *only_take(size_t lock) const;
	int score(const question &asked, const candidate &one,
		  std::string &why) const;

	void list_waiters();
	const actor *locker_of(const lock_state &state) const;
	void find_taken();
	void find_taken_of(size_t lock);
	std::vector<const lock_call *> resolved_takes(size_t lock) const;
	void guess_without_stacks();
	void guess(size_t who, size_t lock, const lock_call *take);
	void find_holders();
	void find_locker(size_t lock);
	void find_givers(size_t lock);
	void find_readers(size_t lock);
	bool stands_in(const actor &one, const site &place) const;
	void add_holders(size_t lock, const std::vector<site> &places,
			 const char *what);
	void add_lone_reader(size_t lock, const std::vector<site> &places);

	const model &from_;
	const code_lines &lines_;
	waits result_;
	std::map<int64_t, size_t> by_pid_;
	std::vector<open_takes> open_;		  /* as waits::locks */
	std::vector<const lock_call *> waits_at_; /* as waits::actors */
	std::vector<question> questions_;
	std::vector<std::vector<size_t>> waiters_; /* as waits::locks */
	bool all_tasks_ = false;
	bool counts_ = true;   /* whether counting is worth its cost */
	bool unknown_ = false; /* somebody may wait for anything */
};

void solver::collect_locks()
{
	for (const bool mutexes : { true, false }) {
		const lock_report &report = best_locks(from_, mutexes);

		if (report.state.now &&
		    (!result_.now || *report.state.now > *result_.now))
			result_.now = report.state.now;
		for (const lock &one : report.locks) {
			lock_state state;

			state.which = &one;
			state.queue = queue_of(one);
			result_.locks.push_back(std::move(state));
			open_.push_back(open_takes_of(one, report.state.now));
		}
	}
}

actor &solver::actor_of(int64_t pid)
{
	const auto [at, added] = by_pid_.emplace(pid, result_.actors.size());

	if (added) {
		actor one;

		one.pid = pid;
		result_.actors.push_back(std::move(one));
	}
	return result_.actors[at->second];
}

void solver::collect_actors()
{
	result_.actors.reserve(from_.threads.threads.size() +
			       result_.locks.size());
	for (const thread &one : from_.threads.threads) {
		actor &its = actor_of(one.pid);

		its.name = one.name;
		its.component = one.component;
		its.blocked = one.state == state_blocked;
	}
	for (const lock_state &state : result_.locks)
		if (state.which->taken && state.which->locker_pid) {
			actor &its = actor_of(*state.which->locker_pid);

			if (its.name.empty())
				its.name = state.which->locker_name;
		}

	std::map<int64_t, const task *> tasks;

	for (const task &one : from_.tasks) {
		tasks[one.pid] = &one;
		all_tasks_ |= one.pid == 1;
		result_.has_stacks |= one.has_stack;
		if (by_pid_.count(one.pid) ||
		    standing_of(one).kind == wait_kind::none)
			continue;
		/* A task of user space in a call of the firmware. */
		actor_of(one.pid).name = one.name;
	}
	for (actor &one : result_.actors) {
		const auto at = tasks.find(one.pid);

		one.alive = at != tasks.end() || !all_tasks_;
		if (at == tasks.end())
			continue;
		one.seen = at->second;
		one.blocked = one.seen->state == 'D';
		if (one.name.empty())
			one.name = one.seen->name;
	}
	waits_at_.resize(result_.actors.size());
}

/* What an actor stands in, and the function in which it called that. */
void solver::place_actor(actor &one)
{
	question asked;

	asked.actor = static_cast<size_t>(&one - result_.actors.data());
	if (one.seen && one.seen->has_stack && !one.seen->stack.empty()) {
		asked.stands = standing_of(*one.seen);
		one.kind = asked.stands.kind;
	} else if (one.blocked) {
		one.kind = wait_kind::unknown;
	}
	if (const stack_frame *caller = asked.stands.caller) {
		one.where =
			fmt::format("{} [{}]", caller->symbol, caller->module);
		asked.calls = call_sites(lines_, *caller);
		if (asked.calls.size() == 1)
			one.at = asked.calls[0];
		if (is_other_build(lines_, *caller))
			result_.notes.push_back(
				fmt::format("{}: the lines are of another build than the module that runs",
					    caller->module));
	}
	if (one.kind == wait_kind::mutex || one.kind == wait_kind::semaphore ||
	    one.kind == wait_kind::room || one.kind == wait_kind::message ||
	    one.kind == wait_kind::event) {
		add_candidates(asked);
		questions_.push_back(std::move(asked));
	}
}

/* Whether a lock is of the kind that a thread stands in the take of. */
bool solver::may_be(const question &asked, const lock_state &state) const
{
	const actor &one = result_.actors[asked.actor];
	const lock &its = *state.which;

	if (!its.taken || its.mutex != asked.stands.on_mutex)
		return false;
	/* Its own mutex a thread gets at once. */
	if (its.mutex && its.locker_pid == one.pid)
		return false;
	switch (one.kind) {
	case wait_kind::mutex:
		return true;
	case wait_kind::semaphore:
		return state.queue.empty();
	case wait_kind::room:
		return !state.queue.empty() &&
		       (its.mutex || its.name.ends_with("-tx"));
	case wait_kind::message:
		return !state.queue.empty() &&
		       (its.mutex || its.name.ends_with("-rx"));
	case wait_kind::event:
		return state.queue.empty();
	default:
		return false;
	}
}

/* The newest take of a lock that a thread may be in. */
const lock_call *solver::matching_take(const question &asked, size_t lock) const
{
	const bool event = result_.actors[asked.actor].kind == wait_kind::event;
	const std::vector<const lock_call *> &takes = open_[lock].takes;

	for (auto take = takes.rbegin(); take != takes.rend(); ++take) {
		const site &at = (*take)->from;

		if (asked.stands.timed &&
		    asked.stands.timed == (*take)->forever)
			continue;
		/* An event's locks are taken in its own source file. */
		if (event) {
			if (at.file == "zorva_event.cpp")
				return *take;
			continue;
		}
		if (asked.calls.empty())
			return *take;
		for (const site &call : asked.calls)
			if (call.line == at.line &&
			    same_file(at.file, call.file))
				return *take;
	}
	return nullptr;
}

void solver::add_candidates(question &asked)
{
	for (size_t i = 0; i < result_.locks.size(); ++i) {
		if (!may_be(asked, result_.locks[i]))
			continue;

		const lock_call *take = matching_take(asked, i);

		if (take || open_[i].cut)
			asked.candidates.push_back({ i, take });
	}
}

void solver::ask()
{
	double steps = 0;

	for (actor &one : result_.actors)
		place_actor(one);
	for (const question &one : questions_)
		steps += static_cast<double>(one.candidates.size());
	steps *= static_cast<double>(questions_.size()) *
		 static_cast<double>(result_.locks.size());
	counts_ = steps < most_steps;
}

/* Looks for a place for one thread, if need be by moving others. */
bool solver::find_place(size_t asked, std::vector<bool> &tried,
			std::vector<std::vector<size_t>> &in,
			const question *fixed) const
{
	for (const candidate &one : questions_[asked].candidates) {
		if (tried[one.lock])
			continue;
		tried[one.lock] = true;

		const open_takes &open = open_[one.lock];
		const bool held = result_.locks[one.lock].which->mutex;
		size_t room = open.takes.size();

		/* One of a mutex's takes is its holder's. */
		if (open.cut || open.doubtful)
			room = unlimited;
		else if (held && room)
			--room;
		if (in[one.lock].size() < room) {
			in[one.lock].push_back(asked);
			return true;
		}
		for (size_t &other : in[one.lock]) {
			if (&questions_[other] == fixed)
				continue;

			const size_t moved = other;

			if (find_place(moved, tried, in, fixed)) {
				other = asked;
				return true;
			}
		}
	}
	return false;
}

/* Whether all can wait somewhere when one of them waits there. */
bool solver::can_assign(const question *fixed, const candidate *to) const
{
	if (!counts_)
		return true;

	std::vector<std::vector<size_t>> in(result_.locks.size());

	if (fixed)
		in[to->lock].push_back(
			static_cast<size_t>(fixed - questions_.data()));
	for (size_t i = 0; i < questions_.size(); ++i) {
		std::vector<bool> tried(result_.locks.size());

		if (&questions_[i] == fixed || questions_[i].candidates.empty())
			continue;
		if (!find_place(i, tried, in, fixed))
			return false;
	}
	if (!fixed)
		return true;

	const open_takes &open = open_[to->lock];
	const size_t room =
		open.takes.size() -
		(result_.locks[to->lock].which->mutex && !open.takes.empty());

	return open.cut || open.doubtful || in[to->lock].size() <= room;
}

/* What speaks for a candidate when it is not the only one. */
int solver::score(const question &asked, const candidate &one,
		  std::string &why) const
{
	const actor &its = result_.actors[asked.actor];
	const lock &lock = *result_.locks[one.lock].which;
	std::string_view file;
	int points = 0;

	if (!one.take)
		return -1;
	file = one.take->from.file;
	file = file.substr(0, file.rfind('.'));
	why = "it is the newest take that may wait";
	if (!its.component.empty() && its.component == lock.component) {
		points += 1;
		why = "both belong to " + its.component;
	}
	const std::string &queue = result_.locks[one.lock].queue;

	if (its.name == (queue.empty() ? lock.name : queue)) {
		points += 2;
		why = "they have the same name";
	}
	if (asked.stands.caller && asked.stands.caller->module == file) {
		points += 4;
		why = fmt::format("its stack is in {}, the take in {}",
				  asked.stands.caller->module,
				  one.take->from.file);
	}
	if (!asked.calls.empty()) {
		points += 8;
		why = "its line takes more than one lock";
	}
	return points;
}

void solver::settle(question &asked, const candidate &chosen, finding sure)
{
	actor &one = result_.actors[asked.actor];

	one.lock = chosen.lock;
	one.sure = std::move(sure);

	const lock_call *take = chosen.take;

	if (take && asked.calls.empty() && one.kind != wait_kind::event)
		take = only_take(chosen.lock);
	waits_at_[asked.actor] = take;
	if (!take)
		return;
	/* An event's take has the line of the event's own file. */
	if (one.kind != wait_kind::event || !one.at)
		one.at = take->from;
	one.since = take->time;
	if (!take->forever)
		one.timeout_ms = take->timeout_ms;
}

/*
 * Without the line of a call: the take in which somebody waits, when all that
 * may wait are at one place. Null when they are not.
 */
const lock_call *solver::only_take(size_t lock) const
{
	const std::vector<const lock_call *> &takes = open_[lock].takes;
	/* The oldest of a mutex's is its holder's. */
	const size_t first = result_.locks[lock].which->mutex;

	for (size_t i = first; i < takes.size(); ++i)
		if (takes[i]->from.line != takes.back()->from.line ||
		    takes[i]->from.file != takes.back()->from.file)
			return nullptr;
	return takes.size() > first ? takes.back() : nullptr;
}

void solver::answer_one(question &asked)
{
	const candidate *best = nullptr;
	std::string why;
	size_t possible = 0;
	int most = -2;

	for (const candidate &one : asked.candidates) {
		std::string reason;

		if (!counts_ && possible >= most_looked_at)
			break;
		if (!can_assign(&asked, &one))
			continue;
		++possible;

		const int points = score(asked, one, reason);
		const bool newer = best && points == most && one.take &&
				   best->take &&
				   one.take->time > best->take->time;

		if (points > most || newer) {
			best = &one;
			most = points;
			why = reason;
		}
	}
	if (!best)
		return;
	if (possible == 1 && best->take) {
		settle(asked, *best, { true, {} });
		return;
	}
	if (!best->take)
		why = "its take would be older than what the history keeps";
	else if (possible > 1)
		why += fmt::format("; {} as well",
				   count_text(possible - 1,
					      "other lock is possible",
					      "other locks are possible"));
	settle(asked, *best, { false, why });
}

void solver::answer()
{
	if (!can_assign(nullptr, nullptr))
		result_.notes.emplace_back(
			"stacks and histories do not fit: they are of different moments");
	for (question &asked : questions_)
		answer_one(asked);
}

/* The takes of a lock in which a thread is known to wait. */
std::vector<const lock_call *> solver::resolved_takes(size_t lock) const
{
	std::vector<const lock_call *> takes;

	for (const size_t waiter : waiters_[lock])
		if (waits_at_[waiter])
			takes.push_back(waits_at_[waiter]);
	return takes;
}

/* Whether a thread is in a call from the function that a place is in. */
bool solver::stands_in(const actor &one, const site &place) const
{
	if (!one.seen)
		return false;
	for (const stack_frame &frame : one.seen->stack)
		if (!frame.module.empty() && covers(lines_, frame, place))
			return true;
	return false;
}

const actor *solver::locker_of(const lock_state &state) const
{
	if (!state.which->locker_pid)
		return nullptr;

	const auto at = by_pid_.find(*state.which->locker_pid);

	return at == by_pid_.end() ? nullptr : &result_.actors[at->second];
}

/* Which of a mutex's takes is that of the thread that has it. */
void solver::find_taken_of(size_t lock)
{
	lock_state &state = result_.locks[lock];
	std::vector<const lock_call *> takes = open_[lock].takes;
	const std::vector<const lock_call *> waiting = resolved_takes(lock);
	bool all_known = !open_[lock].doubtful && !unknown_;
	const actor *locker = locker_of(state);

	for (const size_t waiter : waiters_[lock])
		all_known &= result_.actors[waiter].sure.proven;
	/* Two may wait at one line: then it is the newer that waits. */
	for (const lock_call *take : waiting) {
		const auto at = std::find(takes.begin(), takes.end(), take);

		if (at != takes.end())
			takes.erase(at);
		else
			all_known = false;
	}
	if (takes.empty())
		return;
	state.taken = takes.front();
	state.taken_sure = { takes.size() == 1 && all_known &&
				     (!open_[lock].cut || result_.has_stacks),
			     "it is the oldest take that no give has ended" };
	if (state.taken_sure.proven || !locker)
		return;

	size_t fitting = 0;

	for (const lock_call *take : takes)
		if (stands_in(*locker, take->from)) {
			++fitting;
			state.taken = take;
		}
	if (fitting == 1)
		state.taken_sure.why =
			"the Locker is in the function that the take is in";
	else
		state.taken = takes.front();
}

/* Who waits where, as far as it is known by now. */
void solver::list_waiters()
{
	waiters_.assign(result_.locks.size(), {});
	unknown_ = false;
	for (size_t i = 0; i < result_.actors.size(); ++i) {
		const actor &one = result_.actors[i];

		if (one.lock)
			waiters_[*one.lock].push_back(i);
		else
			unknown_ |= one.kind == wait_kind::unknown;
	}
}

void solver::find_taken()
{
	list_waiters();
	for (size_t i = 0; i < result_.locks.size(); ++i)
		if (result_.locks[i].which->mutex &&
		    result_.locks[i].which->taken)
			find_taken_of(i);
}

/*
 * Without a stack there is only the order of things: who has a lock and is
 * blocked, mostly is so in the next take of the same file.
 */
void solver::guess_without_stacks()
{
	struct waiting_take {
		const lock_call *take;
		size_t lock;
	};
	/* By file and line. */
	std::map<std::pair<std::string_view, int64_t>, std::vector<waiting_take>>
		takes;

	for (size_t i = 0; i < result_.locks.size(); ++i)
		if (result_.locks[i].which->taken)
			for (const lock_call *take : open_[i].takes)
				if (take != result_.locks[i].taken)
					takes[{ take->from.file,
						take->from.line }]
						.push_back({ take, i });

	for (const lock_state &has : result_.locks) {
		const auto owner =
			has.which->mutex && has.which->taken && has.taken &&
					has.which->locker_pid
				? by_pid_.find(*has.which->locker_pid)
				: by_pid_.end();

		if (owner == by_pid_.end())
			continue;

		actor &one = result_.actors[owner->second];
		const site &from = has.taken->from;

		if (one.kind != wait_kind::unknown || one.lock)
			continue;

		auto next = takes.upper_bound({ from.file, from.line });

		for (; next != takes.end() && !one.lock &&
		       next->first.first == from.file;
		     ++next)
			for (const waiting_take &its : next->second) {
				const lock &other =
					*result_.locks[its.lock].which;

				if ((other.mutex &&
				     other.locker_pid == one.pid) ||
				    its.take->time < has.taken->time)
					continue;
				guess(owner->second, its.lock, its.take);
				break;
			}
	}
}

void solver::guess(size_t who, size_t lock, const lock_call *take)
{
	actor &one = result_.actors[who];

	one.lock = lock;
	one.at = take->from;
	one.since = take->time;
	if (!take->forever)
		one.timeout_ms = take->timeout_ms;
	one.sure = {
		false,
		"there is no stack of it; it is the next take in the file in which it took a lock"
	};
	waits_at_[who] = take;
}

void solver::find_locker(size_t lock)
{
	lock_state &state = result_.locks[lock];

	const actor *locker = locker_of(state);

	if (state.which->taken && locker)
		state.holders.push_back(
			{ static_cast<size_t>(locker - result_.actors.data()),
			  { true, {} } });
}

/* Those who stand in the functions of such calls. */
void solver::add_holders(size_t lock, const std::vector<site> &places,
			 const char *what)
{
	lock_state &state = result_.locks[lock];

	for (size_t i = 0; i < result_.actors.size(); ++i) {
		const actor &one = result_.actors[i];

		for (const site &place : places) {
			/* Its own take is no unit that it has. */
			if (!stands_in(one, place) ||
			    (one.lock == lock && one.at &&
			     one.at->line == place.line))
				continue;
			state.holders.push_back(
				{ i,
				  { false,
				    fmt::format("it is in the function that {}, {}:{}",
						what, place.file,
						place.line) } });
			break;
		}
	}
}

/* Without lines: the only thread in the module that has the file's name. */
void solver::add_lone_reader(size_t lock, const std::vector<site> &places)
{
	std::set<size_t> in;

	for (const site &place : places)
		for (size_t i = 0; i < result_.actors.size(); ++i) {
			const actor &one = result_.actors[i];
			const std::string_view stem =
				std::string_view(place.file)
					.substr(0, place.file.rfind('.'));

			if (!one.seen || one.lock == lock)
				continue;
			for (const stack_frame &frame : one.seen->stack)
				if (!frame.module.empty() &&
				    frame.module == stem)
					in.insert(i);
		}
	if (in.size() == 1)
		result_.locks[lock].holders.push_back(
			{ *in.begin(),
			  { false,
			    fmt::format("it alone is in the module that reads the queue, {}",
					places.front().file) } });
}

/* A semaphore names no holder: who took a unit, and is still in there. */
void solver::find_givers(size_t lock)
{
	lock_state &state = result_.locks[lock];
	const std::vector<const lock_call *> waiting = resolved_takes(lock);
	std::vector<const lock_call *> out = units_out(*state.which, waiting);
	std::vector<site> places;

	/* Who comes back to the same take got nothing, or used it up. */
	for (const lock_call *take : waiting)
		std::erase_if(out, [&](const lock_call *one) {
			return one->from.line == take->from.line &&
			       one->from.file == take->from.file;
		});

	if (!out.empty())
		state.taken = out.back();
	state.taken_sure = { false,
			     "it is the newest take whose unit is still out" };
	for (const lock_call *take : out)
		places.push_back(take->from);
	add_holders(lock, places, "took a unit");
}

/* Who would have to take a message out of a queue that is full. */
void solver::find_readers(size_t lock)
{
	const std::string &queue = result_.locks[lock].queue;
	std::vector<site> places;

	for (const lock_state &other : result_.locks) {
		if (other.queue != queue || other.which->mutex ||
		    !other.which->name.ends_with("-rx"))
			continue;
		for (const lock_call &call : other.which->history)
			if (!call.give)
				places.push_back(call.from);
	}
	add_holders(lock, places, "reads the queue");
	if (result_.locks[lock].holders.empty() && lines_.modules.empty())
		add_lone_reader(lock, places);
}

void solver::find_holders()
{
	for (size_t i = 0; i < result_.locks.size(); ++i) {
		lock_state &state = result_.locks[i];

		state.waiters = waiters_[i];
		std::stable_sort(state.waiters.begin(), state.waiters.end(),
				 [&](size_t a, size_t b) {
					 return result_.actors[a].since <
						result_.actors[b].since;
				 });
		if (state.which->mutex)
			find_locker(i);
		else if (state.queue.empty() && !state.waiters.empty())
			find_givers(i);
		else if (state.which->taken &&
			 state.which->name.ends_with("-tx"))
			find_readers(i);
	}
}

waits solver::solve()
{
	collect_locks();
	collect_actors();
	ask();
	answer();
	find_taken();
	guess_without_stacks();
	find_taken();
	find_holders();
	std::sort(result_.notes.begin(), result_.notes.end());
	result_.notes.erase(std::unique(result_.notes.begin(),
					result_.notes.end()),
			    result_.notes.end());
	find_circles(result_);
	return std::move(result_);
}

} // namespace

waits find_waits(const model &from, const code_lines &lines)
{
	return solver(from, lines).solve();
}

std::string lock_text(const lock_state &of)
{
	if (!of.queue.empty())
		return fmt::format("queue '{}'", of.queue);
	return fmt::format("{} '{}'", of.which->mutex ? "mutex" : "semaphore",
			   of.which->name);
}

} // namespace zorva
