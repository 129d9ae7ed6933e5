/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The parsers of the reports, each in a file of its own: parse_<what>.cpp.
 * They know the texts that the module prints and nothing else; what may stand
 * between them, parser.cpp takes away.
 */
#ifndef ZORVA_TOOL_PARSE_H
#define ZORVA_TOOL_PARSE_H

#include "model.h"
#include "read.h"

#include <memory>
#include <optional>
#include <string_view>

namespace zorva
{

/* What a report's parser says of a line. */
enum class taken : uint8_t {
	yes, /* it has it */
	no,  /* the line is none of its own */
	bad, /* it looks like one, and cannot be read */
};

/* What a parser has to say of more than one line, when its report ends. */
class notes {
public:
	explicit notes(reading &into) : into_(into)
	{
	}

	void add(severity level, place at, std::string text);

private:
	reading &into_;
};

/* One report, from its first line to its end. */
class report_parser {
public:
	virtual ~report_parser() = default;

	virtual taken line(std::string_view text, place at) = 0;

	/* The last line was taken, and there can be no more. */
	virtual bool complete() const
	{
		return false;
	}

	/* By its own counts, more lines should have come. */
	virtual bool lacks_lines() const
	{
		return false;
	}

	/*
	 * Puts what was read into the model. A part of a report never takes
	 * the place of a whole one.
	 */
	virtual void finish(model &into, const report_state &state,
			    notes &said) = 0;
};

std::unique_ptr<report_parser> make_parser(report_kind kind);

/* One for each kind; see make_parser(). */
std::unique_ptr<report_parser> make_memory_parser();
std::unique_ptr<report_parser> make_detail_parser();
std::unique_ptr<report_parser> make_thread_parser();
std::unique_ptr<report_parser> make_lock_parser(report_kind kind);
std::unique_ptr<report_parser> make_queue_parser();
std::unique_ptr<report_parser> make_timer_parser(report_kind kind);

/* The report that such a line begins, if it tells. */
std::optional<report_kind> begins(std::string_view text);

/* Whether a line begins as one of a report does. */
bool starts_like_report(std::string_view text);

/* Whether such a line can be a part of any report, as far as it tells. */
bool looks_like_report(std::string_view text);

/*
 * The kernel's own files, a line each: what is wanted of them is taken, the
 * rest is none of our business. False: it cannot be read.
 */
bool parse_uptime(model &into, std::string_view text);
bool parse_meminfo(model &into, std::string_view text, place at);
bool parse_modules(model &into, std::string_view text, place at);
/* Of /proc/PID/stat, and of /proc/PID/stack. */
bool parse_stat(task &into, std::string_view text);
bool parse_stack(task &into, std::string_view text, place at);

/*
 * Moves a report that was read into its place, unless it is a part and the
 * place has a whole one.
 */
template <class Report>
bool may_replace(const Report &old, const report_state &state)
{
	return state.whole || !old.state.whole;
}

} // namespace zorva

#endif
