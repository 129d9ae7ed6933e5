// SPDX-License-Identifier: GPL-2.0
#include "waits_view.h"

#include "print.h"

#include <fmt/format.h>
#include <set>
#include <unistd.h>

namespace zorva
{

option modules_option(std::string &path)
{
	return { "--modules", "DIR",
		 "modules with debug information, or a list of lines", &path };
}

bool lines_for(const std::string &path, std::string_view source,
	       const model &of, code_lines &into)
{
	const bool live = source.empty() || source == "live";
	std::set<std::string, std::less<>> named;
	std::string from = path;

	if (from.empty() && live && access(installed_lines, R_OK) == 0)
		from = installed_lines;
	if (from.empty())
		return true;
	for (const task &one : of.tasks)
		for (const stack_frame &frame : one.stack)
			if (!frame.module.empty() && frame.module != "zorva")
				named.insert(frame.module);

	const bool read = load_lines(
		from,
		[&](std::string_view name) {
			return named.find(name) != named.end();
		},
		into);

	for (const std::string &problem : into.problems)
		complain(escaped(problem, 300));
	return read;
}

std::string actor_text(const actor &of)
{
	return fmt::format("{} ({})", escaped(of.name), of.pid);
}

std::string site_text(const site &at)
{
	return fmt::format("{}:{}", escaped(at.file), at.line);
}

std::string call_text(const actor &of)
{
	if (of.at)
		return site_text(*of.at);
	return of.where.empty() ? "a place that is not known"
				: escaped(of.where);
}

std::string elapsed_text(std::optional<uint64_t> now,
			 std::optional<uint64_t> since)
{
	if (!now || !since || *since > *now)
		return "some time";
	return duration_text(*now - *since);
}

std::string lock_label(const lock_state &of)
{
	return escaped(lock_text(of));
}

} // namespace zorva
