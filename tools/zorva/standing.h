/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Two things that a wait is put together from: what a thread stands in, by its
 * stack, and which takes of a lock may still wait, by its history.
 */
#ifndef ZORVA_TOOL_STANDING_H
#define ZORVA_TOOL_STANDING_H

#include "model.h"
#include "waits.h"

#include <optional>
#include <string_view>
#include <vector>

namespace zorva
{

struct standing {
	wait_kind kind = wait_kind::none;
	/* Whether it is a mutex, of a queue or an event, that it waits for. */
	bool on_mutex = false;
	/* Of a semaphore's take: whether it has a time limit, if that shows. */
	std::optional<bool> timed;
	/* The first frame outside of zorva; null when there is none. */
	const stack_frame *caller = nullptr;
};

standing standing_of(const task &of);

/* What a history says of the calls that are not over. */
struct open_takes {
	/*
	 * Of a mutex, the takes that no give has ended: the holder's, and
	 * those that wait. Of a semaphore, the takes that may wait. Oldest
	 * first.
	 */
	std::vector<const lock_call *> takes;
	/* The history is full: older takes may wait that it does not show. */
	bool cut = false;
	/* It has a give that ends no take: takes and gives do not add up. */
	bool doubtful = false;
};

/* @now: when the report was made, to tell whose time limit has passed */
open_takes open_takes_of(const lock &of, std::optional<uint64_t> now);

/*
 * Of a semaphore, the takes that got a unit which nobody has given back.
 * @waiting: takes that are known to wait
 */
std::vector<const lock_call *>
units_out(const lock &of, const std::vector<const lock_call *> &waiting);

/* The queue that such a lock is a part of; empty: none that its name tells. */
std::string_view queue_of(const lock &of);

} // namespace zorva

#endif
