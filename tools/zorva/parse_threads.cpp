// SPDX-License-Identifier: GPL-2.0
/* zorva.thread: five lines for each thread, and an empty one. */
#include "parse.h"
#include "scan.h"

#include <algorithm>
#include <fmt/format.h>

namespace zorva
{
namespace
{

enum field : unsigned {
	has_component = 1,
	has_name = 2,
	has_pid = 4,
	has_state = 8,
	has_priority = 16,
	has_all = 31,
};

/* Most switches have no more. */
constexpr size_t mostly = 16;

/* Without these it is not worth keeping. */
constexpr unsigned needed = has_name | has_pid | has_state;

class thread_parser final : public report_parser {
public:
	thread_parser()
	{
		report_.threads.reserve(mostly);
		fields_.reserve(mostly);
	}

	taken line(std::string_view text, place at) override
	{
		scan in{ text };

		if (text.empty())
			return taken::yes;
		if (in.text("Component : ")) {
			begin(has_component, at).component = in.rest;
			return taken::yes;
		}
		if (in.text("Name      : ")) {
			begin(has_name, at).name = in.rest;
			return taken::yes;
		}
		if (in.text("PID       : "))
			return figure(in, has_pid, &thread::pid, at);
		if (in.text("State     : "))
			return figure(in, has_state, &thread::state, at);
		if (in.text("Priority  : "))
			return figure(in, has_priority, &thread::priority, at);
		return taken::no;
	}

	void finish(model &into, const report_state &state,
		    notes &said) override
	{
		check(state.whole ? &said : nullptr);
		if (!state.whole) {
			merge(into.threads, state);
			return;
		}
		into.threads = std::move(report_);
		into.threads.state = state;
	}

private:
	/* Parts of a report are newer than what was read before. */
	void merge(thread_report &into, const report_state &state)
	{
		for (thread &one : report_.threads) {
			const auto old =
				std::find_if(into.threads.begin(),
					     into.threads.end(),
					     [&](const thread &its) {
						     return its.pid ==
								    one.pid &&
							    its.name ==
								    one.name;
					     });

			if (old == into.threads.end()) {
				into.threads.push_back(std::move(one));
				continue;
			}
			if (one.component.empty())
				one.component = old->component;
			*old = std::move(one);
		}
		if (!into.state.present)
			into.state = state;
	}

	/* The thread that a field belongs to: a field comes once in each. */
	thread &begin(field which, place at)
	{
		if (report_.threads.empty() || which <= last_) {
			report_.threads.emplace_back();
			report_.threads.back().at = at;
			fields_.push_back(0);
		}
		last_ = which;
		fields_.back() |= which;
		return report_.threads.back();
	}

	taken figure(scan &in, field which, int64_t thread::*into, place at)
	{
		int64_t value;

		if (!in.number(value) || !in.done())
			return taken::bad;
		begin(which, at).*into = value;
		return taken::yes;
	}

	/* Lines may have been lost; a thread without a name or a PID is of no
	 * use. */
	void check(notes *said)
	{
		size_t kept = 0;

		for (size_t i = 0; i < fields_.size(); ++i) {
			thread &one = report_.threads[i];

			if (fields_[i] != has_all && said)
				said->add(severity::error, one.at,
					  fmt::format("lines of thread '{}' are missing",
						      one.name));
			if ((fields_[i] & needed) != needed)
				continue;
			if (kept != i)
				report_.threads[kept] = std::move(one);
			++kept;
		}
		report_.threads.resize(kept);
	}

	thread_report report_;
	std::vector<unsigned> fields_; /* of each thread, those that it has */
	unsigned last_ = 0;
};

} // namespace

std::unique_ptr<report_parser> make_thread_parser()
{
	return std::make_unique<thread_parser>();
}

} // namespace zorva
