// SPDX-License-Identifier: GPL-2.0
#include "model.h"
#include "parser.h"

#include <fmt/format.h>

namespace zorva
{
namespace
{

constexpr std::string_view names[report_kinds] = {
	"zorva.mutex", "zorva.mutex.detail", "zorva.sem",    "zorva.sem.detail",
	"zorva.mem",   "zorva.mem.detail",   "zorva.thread", "zorva.timer",
	"zorva.hrt",   "zorva.msgq",
};

/* The better of two: a whole one rather than a part, then the newer. */
template <class Report>
void keep_better(Report &to, const Report &from)
{
	if (from.state.present &&
	    (!to.state.present || (from.state.whole && !to.state.whole)))
		to = from;
}

template <class List>
void keep_any(List &to, const List &from)
{
	if (to.empty())
		to = from;
}

} // namespace

const char *report_name(report_kind kind)
{
	return names[static_cast<size_t>(kind)].data();
}

std::optional<report_kind> report_of(std::string_view path)
{
	const std::string_view name = path.substr(path.rfind('/') + 1);

	for (size_t i = 0; i < report_kinds; ++i)
		if (name == names[i])
			return static_cast<report_kind>(i);
	return {};
}

const report_state &state_of(const model &of, report_kind kind)
{
	switch (kind) {
	case report_kind::mem:
		return of.memory.state;
	case report_kind::mem_detail:
		return of.blocks.state;
	case report_kind::thread:
		return of.threads.state;
	case report_kind::timer:
		return of.timers.state;
	case report_kind::hrt:
		return of.hr_timers.state;
	case report_kind::msgq:
		return of.queues.state;
	default:
		return of.locks[static_cast<size_t>(kind)].state;
	}
}

bool is_empty(const model &of)
{
	for (size_t i = 0; i < report_kinds; ++i)
		if (state_of(of, static_cast<report_kind>(i)).present)
			return false;
	return of.tasks.empty() && of.modules.empty() &&
	       of.kernel_memory.empty() && !of.uptime_ms &&
	       of.kernel_version.empty();
}

void complete_last_moment(reading &into)
{
	if (into.moments.empty())
		into.moments.emplace_back();
	if (into.moments.size() > 1 && is_empty(into.moments.back()))
		into.moments.pop_back();

	model &last = into.moments.back();

	for (size_t i = into.moments.size() - 1; i-- > 0;) {
		const model &earlier = into.moments[i];

		keep_better(last.memory, earlier.memory);
		keep_better(last.blocks, earlier.blocks);
		keep_better(last.threads, earlier.threads);
		for (size_t j = 0; j < last.locks.size(); ++j)
			keep_better(last.locks[j], earlier.locks[j]);
		keep_better(last.queues, earlier.queues);
		keep_better(last.timers, earlier.timers);
		keep_better(last.hr_timers, earlier.hr_timers);
		keep_any(last.tasks, earlier.tasks);
		keep_any(last.modules, earlier.modules);
		keep_any(last.kernel_memory, earlier.kernel_memory);
		keep_any(last.kernel_version, earlier.kernel_version);
		if (!last.uptime_ms)
			last.uptime_ms = earlier.uptime_ms;
	}
}

std::string place_text(const reading &from, place at)
{
	if (at.input >= from.inputs.size())
		return "";

	const std::string &name = from.inputs[at.input].name;

	return at.line ? fmt::format("{}:{}", name, at.line) : name;
}

} // namespace zorva
