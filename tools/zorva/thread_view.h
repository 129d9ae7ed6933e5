/* SPDX-License-Identifier: GPL-2.0 */
/* How a thread is shown; all texts are escaped. */
#ifndef ZORVA_TOOL_THREAD_VIEW_H
#define ZORVA_TOOL_THREAD_VIEW_H

#include "model.h"
#include "print.h"

#include <string>
#include <vector>

namespace zorva
{

/* The priority that stands for real time; all others are nice values. */
constexpr int64_t real_time = 30;

const task *task_of(const model &now, int64_t pid);

/*
 * Ended without a word to the module: its record stays for good. Only known
 * where all tasks were looked at.
 */
bool is_gone(const model &now, const thread &one);

std::vector<const lock *> held_by(const model &now, int64_t pid);

/* "runs", "sleeps", "blocked", "gone" */
cell thread_state(const model &now, const thread &one);

/* "real time", or the nice value that the module makes of a priority. */
std::string priority_text(int64_t priority);

/* The mutexes that it holds; "-" for none. */
std::string thread_holds(const model &now, int64_t pid);

/*
 * Where it is in the kernel, below the scheduler and the kernel's own waits;
 * "-" when that is not known.
 */
std::string thread_place(const model &now, int64_t pid);

} // namespace zorva

#endif
