// SPDX-License-Identifier: GPL-2.0
/*
 * Circles among those who wait. A thread waits for one lock; a mutex has one
 * holder, and of a semaphore or a queue there may be several who could give. A
 * circle through one of several is never proven: another of them can end it.
 */
#include "circles.h"

#include <algorithm>

namespace zorva
{
namespace
{

enum class mark : uint8_t {
	untouched,
	on_path,
	done
};

class walker {
public:
	explicit walker(waits &in)
		: in_(in), marks_(in.actors.size(), mark::untouched)
	{
	}

	void walk();

private:
	struct step_back {
		size_t actor = 0;
		size_t next = 0; /* of the holders of what it waits for */
	};

	void from(size_t start);
	const std::vector<holder> *holders_of(size_t actor) const;
	void close(size_t first);

	waits &in_;
	std::vector<mark> marks_;
	std::vector<step_back> path_;
};

/* Whom an actor waits for; null: nobody that is known. */
const std::vector<holder> *walker::holders_of(size_t actor) const
{
	const std::optional<size_t> lock = in_.actors[actor].lock;

	return lock ? &in_.locks[*lock].holders : nullptr;
}

/* The path ends in an actor that is on it: the circle begins there. */
void walker::close(size_t first)
{
	const auto begin = std::find_if(path_.begin(), path_.end(),
					[&](const step_back &one) {
						return one.actor == first;
					});
	deadlock found;

	found.proven = true;
	for (auto at = begin; at != path_.end(); ++at) {
		const actor &one = in_.actors[at->actor];
		const lock_state &its = in_.locks[*one.lock];
		const holder &by = its.holders[at->next - 1];

		found.steps.push_back({ at->actor, *one.lock, by.actor });
		found.proven &= one.sure.proven && by.sure.proven &&
				its.holders.size() == 1;
		/* It stands still since the last of them has come. */
		if (one.since && (!found.since || *one.since > *found.since))
			found.since = one.since;
	}
	in_.deadlocks.push_back(std::move(found));
}

void walker::from(size_t start)
{
	path_ = { { start, 0 } };
	marks_[start] = mark::on_path;
	while (!path_.empty()) {
		step_back &last = path_.back();
		const std::vector<holder> *holders = holders_of(last.actor);

		if (!holders || last.next >= holders->size()) {
			marks_[last.actor] = mark::done;
			path_.pop_back();
			continue;
		}

		const size_t next = (*holders)[last.next++].actor;

		if (marks_[next] == mark::on_path) {
			close(next);
		} else if (marks_[next] == mark::untouched) {
			marks_[next] = mark::on_path;
			path_.push_back({ next, 0 });
		}
	}
}

void walker::walk()
{
	for (size_t i = 0; i < in_.actors.size(); ++i)
		if (marks_[i] == mark::untouched)
			from(i);
}

} // namespace

void find_circles(waits &in)
{
	walker(in).walk();
	/* What is sure first, then what lasts longest. */
	std::stable_sort(in.deadlocks.begin(), in.deadlocks.end(),
			 [](const deadlock &a, const deadlock &b) {
				 if (a.proven != b.proven)
					 return a.proven;
				 return a.since < b.since;
			 });
}

} // namespace zorva
