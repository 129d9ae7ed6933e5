// SPDX-License-Identifier: GPL-2.0
/* The record of the calls that the module makes. */
#include "scheduler.h"

#include <algorithm>

#include <stdio.h>
#include <unistd.h>

namespace
{

std::vector<fake::call> made;
void (*fatal_handler)();
void (*deadlock_handler)(const std::string &states);
std::function<void(const fake::call &)> hook;

const fake::at_restart forget_all([] {
	made.clear();
	hook = nullptr;
});

std::string first_word(const std::string &text)
{
	return text.substr(0, text.find(' '));
}

} // namespace

namespace fake
{

const std::vector<call> &calls()
{
	return made;
}

std::vector<call> calls_to(const std::vector<std::string> &names)
{
	std::vector<call> found;

	for (const call &each : made)
		if (std::find(names.begin(), names.end(),
			      first_word(each.text)) != names.end())
			found.push_back(each);
	return found;
}

std::vector<std::string> call_texts(const std::vector<std::string> &names)
{
	std::vector<std::string> texts;

	for (const call &each : calls_to(names))
		texts.push_back(each.text);
	return texts;
}

void forget_calls()
{
	made.clear();
}

void on_call(std::function<void(const call &)> function)
{
	hook = std::move(function);
}

void record(const std::string &text, const void *object)
{
	const call each = { text, object, running()->number, current_context(),
			    now() };

	made.push_back(each);
	if (hook)
		hook(each);
	may_switch(switch_point::kernel_call);
}

void on_fatal(void (*handler)())
{
	fatal_handler = handler;
}

void on_deadlock(void (*handler)(const std::string &states))
{
	deadlock_handler = handler;
}

void note_circle()
{
	if (deadlock_handler)
		fatal_deadlock("");
}

void fatal_deadlock(const std::string &states)
{
	if (deadlock_handler) {
		deadlock_handler(states);
		if (fatal_handler)
			fatal_handler();
	}
	fatal("deadlock, no task can ever run again:\n" + states);
}

void fatal(const std::string &what)
{
	fail(what);
	if (fatal_handler)
		fatal_handler();
	fflush(stdout);
	fprintf(stderr, "%s\n", what.c_str());
	_exit(1);
}

} // namespace fake
