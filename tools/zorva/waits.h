/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Who waits for whom. The reports name no thread that waits: a lock's history
 * says where in the source it was taken, a stack says where in the code a
 * thread stands. This brings both together, and says of each result how far
 * it can be relied on.
 */
#ifndef ZORVA_TOOL_WAITS_H
#define ZORVA_TOOL_WAITS_H

#include "model.h"
#include "symbols.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zorva
{

/* What a thread stands in, by its stack. */
enum class wait_kind : uint8_t {
	none,	   /* it runs, sleeps, or waits for something of its own */
	mutex,	   /* the take of a mutex */
	semaphore, /* the take of a semaphore */
	room,	   /* a send to a queue: for a free slot */
	message,   /* a receive from a queue: for a message */
	event,	   /* for an event */
	wake_up,   /* for a wait module */
	unknown,   /* it is blocked, and there is no stack to tell in what */
};

/* Something that was found out, and whether it can be otherwise. */
struct finding {
	bool proven = false;
	std::string why; /* if not proven: what speaks for it, and what not */
};

/* A thread, of this module or one that has one of its locks. */
struct actor {
	int64_t pid = 0;
	std::string name;
	std::string component; /* empty: it is not one of this module's */
	bool alive = true;     /* false: the kernel has no such task any more */
	bool blocked = false;  /* its state is that no signal wakes it */
	const task *seen = nullptr; /* what the kernel says of it */

	wait_kind kind = wait_kind::none;
	std::optional<size_t> lock; /* that it waits for, of waits::locks */
	finding sure;		    /* about the lock */
	/* The take: from the history, or from the stack alone. */
	std::optional<site> at;
	std::optional<uint64_t> since;
	std::optional<uint64_t> timeout_ms; /* of the take */
	std::string where; /* its function and module outside of zorva */
};

/* Who has a lock, or is the one who would have to give it. */
struct holder {
	size_t actor = 0;
	finding sure;
};

/* A lock that somebody has, or waits for. */
struct lock_state {
	const lock *which = nullptr;
	std::vector<size_t> waiters; /* actors, the longest wait first */
	std::vector<holder> holders;
	/* Where, and since when, it is held; of a mutex the Locker's take. */
	const lock_call *taken = nullptr;
	finding taken_sure;
	std::string queue; /* of which queue it is a part; empty: of none */
};

/* A step of a circle: who waits, and whom it waits for. */
struct wait_step {
	size_t actor = 0;
	size_t lock = 0;
	size_t next = 0; /* the actor that has the lock */
};

/* A circle: none of these can ever go on. */
struct deadlock {
	std::vector<wait_step> steps;
	bool proven = false;
	std::optional<uint64_t> since; /* when the last of them began to wait */
};

struct waits {
	std::vector<actor> actors;
	std::vector<lock_state> locks;
	std::vector<deadlock> deadlocks;
	std::optional<uint64_t> now;	/* of the lock reports */
	bool has_stacks = false;	/* at least one could be read */
	std::vector<std::string> notes; /* what limits the answer */
};

/*
 * find_waits - who waits for whom
 * @from: what was read; has to live as long as the result
 * @lines: of the modules; without any, histories and stacks have to do
 */
waits find_waits(const model &from, const code_lines &lines);

/* "mutex 'fdb'", "queue 'fdb-learn'"; not escaped. */
std::string lock_text(const lock_state &of);

} // namespace zorva

#endif
