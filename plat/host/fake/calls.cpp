// SPDX-License-Identifier: GPL-2.0
/* The record of the calls that the module makes. */
#include "scheduler.h"

#include <algorithm>

#include <stdio.h>
#include <unistd.h>

namespace
{

std::vector<fake::call> made;
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
}

void fatal(const std::string &what)
{
	fail(what);
	fflush(stdout);
	fprintf(stderr, "%s\n", what.c_str());
	_exit(1);
}

} // namespace fake
