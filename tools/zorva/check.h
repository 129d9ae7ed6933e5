/* SPDX-License-Identifier: GPL-2.0 */
/* Everything that looks wrong, worst first; nothing is printed here. */
#ifndef ZORVA_TOOL_CHECK_H
#define ZORVA_TOOL_CHECK_H

#include "model.h"
#include "waits.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zorva
{

/* In the order in which they are shown. */
enum class trouble : uint8_t {
	deadlock,
	damaged_block,
	miscounted,
	probable_deadlock,
	lost_lock, /* held by a thread that has ended */
	full_queue,
	leak,	   /* it only grew from moment to moment */
	held_long, /* a mutex, and somebody waits for it */
	low_memory,
	timers_gone, /* nearly all that there can be are made */
	lost_thread, /* listed, and the kernel has no such task */
	was_full,    /* a queue, some time: worth knowing, not wrong */
};

struct problem {
	trouble what = trouble::deadlock;
	/* All of these are escaped. */
	std::string title;
	std::vector<std::string> details;
	std::string next; /* the command to go on with, without its source */
	std::vector<site> sites; /* not escaped */

	bool wrong() const
	{
		return what != trouble::was_full;
	}
};

/* "deadlock", "damaged_block": of JSON. */
const char *trouble_name(trouble what);

/*
 * find_problems - what looks wrong
 * @moments: at least one, oldest first; the last one is looked at, the others
 *	tell what has grown
 * @of: the last one's waits
 *
 * Return: the worst first.
 */
std::vector<problem> find_problems(const std::vector<const model *> &moments,
				   const waits &of);

} // namespace zorva

#endif
