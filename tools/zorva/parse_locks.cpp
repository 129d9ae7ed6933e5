// SPDX-License-Identifier: GPL-2.0
/* The four reports of mutexes and semaphores: objects and their histories. */
#include "parse.h"
#include "scan.h"

#include <algorithm>
#include <fmt/format.h>

namespace zorva
{
namespace
{

constexpr std::string_view head_rule = "----------------";
constexpr std::string_view object_rule = "---------------------------------";

enum field : unsigned {
	has_index = 1,
	has_name = 2,
	has_component = 4,
	has_status = 8,
	has_locker = 16,
	has_all = has_index | has_name | has_component | has_status,
};

/* The module keeps no more calls of a lock. */
constexpr size_t longest_history = 8;

/* How a take's time limit begins. */
constexpr std::string_view limit_start = " (";

/*
 * " (forever)", " (250 msec)", or, where that has not fitted, the first 15
 * characters of it.
 */
bool scan_limit(std::string_view text, lock_call &into)
{
	scan in{ text };
	uint64_t ms;

	if (in.text(" (forever)"))
		into.forever = true;
	else if (in.text(limit_start) && in.number(ms)) {
		into.timeout_ms = ms;
		if (in.text(" msec)"))
			return in.done();
		into.timeout_cut = true;
		return text.size() == 15 &&
		       std::string_view(" msec)").starts_with(in.rest);
	} else {
		return false;
	}
	return in.done();
}

class lock_parser final : public report_parser {
public:
	explicit lock_parser(report_kind kind)
		: kind_(kind), mutex_(kind == report_kind::mutex ||
				      kind == report_kind::mutex_detail)
	{
	}

	taken line(std::string_view text, place at) override
	{
		scan in{ text };
		uint64_t now;

		if (text.starts_with("  ["))
			return call_line(text, at);
		if (text.empty())
			return taken::yes;
		if (text[0] == '-' &&
		    (text == head_rule || text == object_rule))
			return taken::yes;
		if (text[0] == 'D' && text == title()) {
			titled_ = true;
			return taken::yes;
		}
		if (in.text("Current Time : ")) {
			if (now_ || !in.number(now) || !in.done())
				return taken::bad;
			now_ = now;
			return taken::yes;
		}
		if (in.text("Index     : "))
			return index_line(in, at);
		if (in.text("Name      : ")) {
			begin(has_name, at).name = in.rest;
			return taken::yes;
		}
		if (in.text("Component : "))
			return component_line(in, at);
		if (in.text("Status    : "))
			return status_line(in, at);
		if (in.text("Locker    : "))
			return mutex_ ? locker_line(in, at) : taken::bad;
		return total_line(in);
	}

	bool complete() const override
	{
		return report_.shown.has_value();
	}

	void finish(model &into, const report_state &state,
		    notes &said) override
	{
		lock_report &place = into.locks[static_cast<size_t>(kind_)];

		report_.state = state;
		report_.state.now = now_;
		check(state.whole ? &said : nullptr);
		if (state.whole && titled_ && !report_.shown) {
			report_.state.cut = true;
			said.add(severity::warning, state.end,
				 fmt::format("{} is cut off here: its last line is missing",
					     report_name(kind_)));
		}
		if (state.whole)
			place = std::move(report_);
		else
			merge(place);
	}

private:
	std::string_view title() const
	{
		switch (kind_) {
		case report_kind::mutex:
			return "Dump all ACTIVE & LOCKED mutex(s)";
		case report_kind::mutex_detail:
			return "Dump all ACTIVE mutex(s)";
		case report_kind::sem:
			return "Dump all ACTIVE & LOCKED semaphore(s)";
		default:
			return "Dump all ACTIVE semaphore(s)";
		}
	}

	/* Parts of a report are newer than what was read before. */
	void merge(lock_report &into)
	{
		constexpr unsigned needed = has_name | has_component |
					    has_status;

		for (size_t i = 0; i < fields_.size(); ++i) {
			lock &one = report_.locks[i];
			const auto old = std::
				find_if(into.locks.begin(), into.locks.end(),
					[&](const lock &its) {
						return its.name == one.name &&
						       its.component_id ==
							       one.component_id;
					});

			if ((fields_[i] & needed) != needed)
				continue;
			if (old == into.locks.end()) {
				into.locks.push_back(std::move(one));
				continue;
			}
			if (!one.index)
				one.index = old->index;
			*old = std::move(one);
		}
		if (!into.state.present)
			into.state = report_.state;
	}

	/* The object that a field belongs to: a field comes once in each. */
	lock &begin(field which, place at)
	{
		if (report_.locks.empty() || which <= last_) {
			report_.locks.emplace_back();
			report_.locks.back().mutex = mutex_;
			report_.locks.back().at = at;
			fields_.push_back(0);
		}
		last_ = which;
		fields_.back() |= which;
		return report_.locks.back();
	}

	taken index_line(scan &in, place at)
	{
		int64_t index;

		if (!in.number(index) || !in.done())
			return taken::bad;
		begin(has_index, at).index = index;
		return taken::yes;
	}

	/* "FDB (17)" */
	taken component_line(scan &in, place at)
	{
		std::string_view name;
		int64_t id;

		if (!in.until(" (", name) || !in.number(id) || !in.text(")") ||
		    !in.done())
			return taken::bad;

		lock &one = begin(has_component, at);

		one.component = name;
		one.component_id = id;
		return taken::yes;
	}

	taken status_line(scan &in, place at)
	{
		const bool take = in.rest == "Take";

		if (!take && in.rest != "Give")
			return taken::bad;
		begin(has_status, at).taken = take;
		return taken::yes;
	}

	/* "40 (fdb-save)" */
	taken locker_line(scan &in, place at)
	{
		int64_t pid;

		if (!in.number(pid) || !in.text(" (") ||
		    !in.rest.ends_with(')'))
			return taken::bad;
		in.rest.remove_suffix(1);

		lock &one = begin(has_locker, at);

		one.locker_pid = pid;
		one.locker_name = in.rest;
		return taken::yes;
	}

	/* "  [0000000000000012] Take @fw_fdb.c, 271 (30000 msec)" */
	taken call_line(std::string_view text, place at)
	{
		scan in{ text };
		lock_call call;
		std::string_view file, site;

		if (!in.text("  [") || !in.number(call.time) || !in.text("] "))
			return taken::bad;
		if (in.text("Give @"))
			call.give = true;
		else if (!in.text("Take @"))
			return taken::no;
		site = in.rest;
		if (!mutex_ && !call.give) {
			const size_t limit = site.rfind(limit_start);

			if (limit == site.npos ||
			    !scan_limit(site.substr(limit), call))
				return taken::bad;
			site = site.substr(0, limit);
		}
		if (!scan_site(site, file, call.from.line) ||
		    report_.locks.empty())
			return taken::bad;
		call.from.file = file;
		call.at = at;
		report_.locks.back().history.reserve(longest_history);
		report_.locks.back().history.push_back(std::move(call));
		last_ = has_all | has_locker;
		return taken::yes;
	}

	/* The last line: how many there are. */
	taken total_line(scan &in)
	{
		const bool detail = kind_ == report_kind::mutex_detail ||
				    kind_ == report_kind::sem_detail;
		const std::string_view what = mutex_ ? "Mutex: "
						     : "Semaphore: ";
		uint64_t total, shown;

		if (detail) {
			if (!in.text("Total number of ") || !in.text(what))
				return taken::no;
			if (!in.number(total) || !in.text(" (active ") ||
			    !in.number(shown) || !in.text(")") || !in.done())
				return taken::bad;
			report_.total = total;
		} else {
			if (!in.text("Number of ") || !in.text(what))
				return taken::no;
			if (!in.number(shown) || !in.done())
				return taken::bad;
		}
		report_.shown = shown;
		return taken::yes;
	}

	/* Lines may have been lost. */
	void check(notes *said)
	{
		for (size_t i = 0; said && i < fields_.size(); ++i)
			if ((fields_[i] & has_all) != has_all)
				said->add(severity::error, report_.locks[i].at,
					  fmt::format("lines of {} '{}' are missing",
						      mutex_ ? "mutex"
							     : "semaphore",
						      report_.locks[i].name));
		if (said && report_.shown &&
		    *report_.shown != report_.locks.size())
			said->add(severity::error, report_.state.end,
				  fmt::format("{} counts {} objects, {} were read",
					      report_name(kind_),
					      *report_.shown,
					      report_.locks.size()));
	}

	const report_kind kind_;
	const bool mutex_;
	lock_report report_;
	std::vector<unsigned> fields_; /* of each object, those that it has */
	unsigned last_ = 0;
	bool titled_ = false;
	std::optional<uint64_t> now_;
};

} // namespace

std::unique_ptr<report_parser> make_lock_parser(report_kind kind)
{
	return std::make_unique<lock_parser>(kind);
}

} // namespace zorva
