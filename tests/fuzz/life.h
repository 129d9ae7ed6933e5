/* SPDX-License-Identifier: GPL-2.0 */
/*
 * One life of the module in a process that has many: what it begins and ends
 * with, and what holds between any two calls.
 */
#ifndef FUZZ_LIFE_H
#define FUZZ_LIFE_H

#include "fake/kernel.h"
#include "fake/tasks.h"

#include <gtest/gtest.h>

namespace life
{

/* The module as it is after its load, on a kernel that has just booted. */
void begin();

/* Proves that all lists and accounts agree, and that no lock is held. */
void check();

/*
 * Destroys what is still registered, proves that nothing else is left, and
 * forgets the module's state. Leftovers are an error unless they are allowed,
 * as they are after a failed allocation.
 */
enum class leftovers {
	forbidden,
	allowed
};
void end(leftovers what);

/* How many threads are listed. */
size_t threads();

/* The reports since the life began. */
const std::vector<std::string> &reports();

} // namespace life

#endif
