// SPDX-License-Identifier: GPL-2.0
/* zorva.msgq: six lines for each queue, and an empty one. */
#include "parse.h"
#include "scan.h"

#include <algorithm>
#include <fmt/format.h>

namespace zorva
{
namespace
{

enum field : unsigned {
	has_name = 1,
	has_component = 2,
	has_size = 4,
	has_max_depth = 8,
	has_depth = 16,
	has_max_seen = 32,
	has_all = 63,
};

/* Most switches have no more. */
constexpr size_t mostly = 16;

class queue_parser final : public report_parser {
public:
	queue_parser()
	{
		report_.queues.reserve(mostly);
		fields_.reserve(mostly);
	}

	taken line(std::string_view text, place at) override
	{
		scan in{ text };

		if (text.empty())
			return taken::yes;
		if (in.text("Queue Name   : ")) {
			begin(has_name, at).name = in.rest;
			return taken::yes;
		}
		if (in.text("Component ID : "))
			return component_line(in, at);
		if (in.text("Msg Size     : "))
			return figure(in, has_size, &queue::message_size,
				      " bytes", at);
		if (in.text("Max Depth    : "))
			return figure(in, has_max_depth, &queue::max_depth, "",
				      at);
		if (in.text("Curr Depth   : "))
			return figure(in, has_depth, &queue::depth, "", at);
		if (in.text("Max Seen     : "))
			return figure(in, has_max_seen, &queue::max_seen, "",
				      at);
		return taken::no;
	}

	void finish(model &into, const report_state &state,
		    notes &said) override
	{
		for (size_t i = 0; state.whole && i < fields_.size(); ++i)
			if (fields_[i] != has_all)
				said.add(severity::error, report_.queues[i].at,
					 fmt::format("lines of queue '{}' are missing",
						     report_.queues[i].name));
		if (!state.whole) {
			merge(into.queues, state);
			return;
		}
		into.queues = std::move(report_);
		into.queues.state = state;
	}

private:
	/* Parts of a report are newer than what was read before. */
	void merge(queue_report &into, const report_state &state)
	{
		for (size_t i = 0; i < fields_.size(); ++i) {
			queue &one = report_.queues[i];
			const auto old = std::
				find_if(into.queues.begin(), into.queues.end(),
					[&](const queue &its) {
						return its.name == one.name &&
						       its.component_id ==
							       one.component_id;
					});

			if (fields_[i] != has_all)
				continue;
			if (old == into.queues.end())
				into.queues.push_back(std::move(one));
			else
				*old = std::move(one);
		}
		if (!into.state.present)
			into.state = state;
	}

	/* The queue that a field belongs to: a field comes once in each. */
	queue &begin(field which, place at)
	{
		if (report_.queues.empty() || which <= last_) {
			report_.queues.emplace_back();
			report_.queues.back().at = at;
			fields_.push_back(0);
		}
		last_ = which;
		fields_.back() |= which;
		return report_.queues.back();
	}

	/* "17 (FDB)" */
	taken component_line(scan &in, place at)
	{
		uint32_t id;

		if (!in.number(id) || !in.text(" (") || !in.rest.ends_with(')'))
			return taken::bad;
		in.rest.remove_suffix(1);

		queue &one = begin(has_component, at);

		one.component_id = id;
		one.component = in.rest;
		return taken::yes;
	}

	template <class Number>
	taken figure(scan &in, field which, Number queue::*into,
		     std::string_view unit, place at)
	{
		Number value;

		if (!in.number(value) || in.rest != unit)
			return taken::bad;
		begin(which, at).*into = value;
		return taken::yes;
	}

	queue_report report_;
	std::vector<unsigned> fields_; /* of each queue, those that it has */
	unsigned last_ = 0;
};

} // namespace

std::unique_ptr<report_parser> make_queue_parser()
{
	return std::make_unique<queue_parser>();
}

} // namespace zorva
