// SPDX-License-Identifier: GPL-2.0
#include "thread_view.h"

#include <fmt/format.h>

namespace zorva
{
namespace
{

const stack_frame *where(const model &now, int64_t pid)
{
	const task *const its = task_of(now, pid);
	const stack_frame *innermost = nullptr;

	if (!its)
		return nullptr;
	for (const stack_frame &frame : its->stack) {
		if (!frame.module.empty())
			return &frame;
		if (!innermost)
			innermost = &frame;
	}
	return innermost;
}

} // namespace

const task *task_of(const model &now, int64_t pid)
{
	for (const task &one : now.tasks)
		if (one.pid == pid)
			return &one;
	return nullptr;
}

bool is_gone(const model &now, const thread &one)
{
	return !now.tasks.empty() && !task_of(now, one.pid);
}

std::vector<const lock *> held_by(const model &now, int64_t pid)
{
	std::vector<const lock *> held;

	for (const lock &one : best_locks(now, true).locks)
		if (one.taken && one.locker_pid == pid)
			held.push_back(&one);
	return held;
}

cell thread_state(const model &now, const thread &one)
{
	if (is_gone(now, one))
		return { "gone", style::bad };
	switch (one.state) {
	case 0:
		return { "runs", style::good };
	case 1:
		return "sleeps";
	case 2:
		return { "blocked", style::warn };
	default:
		return fmt::format("state {}", one.state);
	}
}

std::string priority_text(int64_t priority)
{
	if (priority == real_time)
		return "real time";
	return fmt::format("nice {}", priority * 39 / 255 - 20);
}

std::string thread_holds(const model &now, int64_t pid)
{
	std::string text;

	for (const lock *one : held_by(now, pid))
		text += (text.empty() ? "" : ", ") + escaped(one->name);
	return text.empty() ? "-" : text;
}

std::string thread_place(const model &now, int64_t pid)
{
	const stack_frame *const at = where(now, pid);

	if (!at)
		return "-";
	return escaped(at->symbol) +
	       (at->module.empty() ? ""
				   : fmt::format(" [{}]", escaped(at->module)));
}

} // namespace zorva
