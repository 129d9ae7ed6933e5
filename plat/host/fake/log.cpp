// SPDX-License-Identifier: GPL-2.0
/* The kernel log: kept, for tests to look at. */
#include "internal.h"

namespace
{

std::vector<fake::log_entry> entries;
size_t seen;

const fake::at_restart forget_all([] {
	entries.clear();
	seen = 0;
});

void append(const std::string &text)
{
	entries.push_back({ text, fake::current_context() });
}

} // namespace

namespace fake
{

const std::vector<log_entry> &kernel_log()
{
	seen = entries.size();
	return entries;
}

std::string log_text()
{
	std::string text;

	for (const log_entry &entry : kernel_log())
		text += entry.text;
	return text;
}

size_t log_size()
{
	return entries.size();
}

bool log_has_unseen()
{
	return seen != entries.size();
}

void warn(const std::string &text)
{
	append("WARNING: " + text);
}

void warn_once(bool &warned, const std::string &text)
{
	if (!warned)
		warn(text);
	warned = true;
}

} // namespace fake

int vprintk(const char *fmt, va_list args)
{
	const std::string text = fake::vformat(fmt, args);

	append(text);
	return text.size();
}

int printk(const char *fmt, ...)
{
	va_list args;

	va_start(args, fmt);
	const int length = vprintk(fmt, args);
	va_end(args);
	return length;
}

void dump_stack(void)
{
	append("<stack>\n");
}
