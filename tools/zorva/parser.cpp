// SPDX-License-Identifier: GPL-2.0
#include "parser.h"
#include "clean.h"
#include "crc.h"
#include "progress.h"
#include "scan.h"
#include "snapshot.h"

#include <cstring>
#include <fmt/format.h>

namespace zorva
{

std::unique_ptr<report_parser> make_parser(report_kind kind)
{
	switch (kind) {
	case report_kind::mem:
		return make_memory_parser();
	case report_kind::mem_detail:
		return make_detail_parser();
	case report_kind::thread:
		return make_thread_parser();
	case report_kind::timer:
	case report_kind::hrt:
		return make_timer_parser(kind);
	case report_kind::msgq:
		return make_queue_parser();
	default:
		return make_lock_parser(kind);
	}
}

std::optional<report_kind> begins(std::string_view text)
{
	if (text.starts_with("           Curr        Max ") ||
	    text.starts_with("Component  Usage "))
		return report_kind::mem;
	if (text.starts_with("Current Time : ") ||
	    text.starts_with("Component   : "))
		return report_kind::mem_detail;
	if (text == "Dump all ACTIVE & LOCKED mutex(s)")
		return report_kind::mutex;
	if (text == "Dump all ACTIVE mutex(s)")
		return report_kind::mutex_detail;
	if (text == "Dump all ACTIVE & LOCKED semaphore(s)")
		return report_kind::sem;
	if (text == "Dump all ACTIVE semaphore(s)")
		return report_kind::sem_detail;
	if (text.starts_with("Component  Timer "))
		return report_kind::timer;
	if (text.starts_with("Queue Name   : "))
		return report_kind::msgq;
	if (text.starts_with("Component : ") && !text.ends_with(')'))
		return report_kind::thread;
	return {};
}

bool starts_like_report(std::string_view text)
{
	static constexpr std::string_view starts[] = {
		"  [0",		  "<memory corr",   "Curr Usage  :",
		"Max Usage   :",  "Alloc Count :",  "Free Count  :",
		"Component   :",  "Component :",    "Name      :",
		"PID       :",	  "State     :",    "Priority  :",
		"Index     :",	  "Status    :",    "Locker    :",
		"Queue Name   :", "Component ID :", "Msg Size     :",
		"Max Depth    :", "Curr Depth   :", "Max Seen     :",
		"Current Time :", "Dump all ACT",
	};

	if (begins(text))
		return true;
	for (const std::string_view start : starts)
		if (text.starts_with(start))
			return true;
	return false;
}

bool looks_like_report(std::string_view text)
{
	static constexpr std::string_view parts[] = {
		" bytes (",   "] Take @",      "] Give @",
		"corruption", " (expected 0x",
	};

	for (const std::string_view part : parts)
		if (text.find(part) != text.npos)
			return true;
	return starts_like_report(text);
}

void notes::add(severity level, place at, std::string text)
{
	switch (level) {
	case severity::note:
		++into_.notes;
		break;
	case severity::warning:
		++into_.warnings;
		break;
	case severity::error:
		++into_.errors;
		break;
	}
	if (into_.diagnostics.size() < max_diagnostics)
		into_.diagnostics.push_back({ level, at, std::move(text) });
}

namespace
{

/* What a line says of where the next ones come from. */
struct mention {
	report_kind kind;
	bool whole; /* all of the report, not a part that was picked out */
};

/* "# cat /proc/zorva/zorva.mem", "==> /proc/zorva/zorva.mem <==" */
std::optional<mention> find_mention(std::string_view line)
{
	constexpr std::string_view name = "zorva.";

	for (size_t at = line.find(name); at != line.npos;
	     at = line.find(name, at + 1)) {
		std::string_view word = line.substr(at);
		const size_t end =
			word.find_first_not_of("abcdefghijklmnopqrstuvwxyz.");

		/* A name alone is what "ls" has printed. */
		if (!at || (line[at - 1] != '/' && line[at - 1] != ' '))
			continue;
		if (const auto kind = report_of(word.substr(0, end)))
			return mention{ *kind,
					line.find("cat ") != line.npos &&
						line.find('|') == line.npos };
	}
	return {};
}

/* The part of a line that a diagnostic shows. */
std::string quoted(std::string_view line)
{
	constexpr size_t shown = 60;

	return fmt::format("'{}'{}", line.substr(0, shown),
			   line.size() > shown ? "..." : "");
}

/* What the lines of a section are. */
enum class content : uint8_t {
	loose, /* no section: the lines have to tell */
	report,
	uptime,
	meminfo,
	modules,
	version,
	stat,
	stack,
	unwanted,
};

/* Reads one text; what was read so far of the others stays. */
class text_parser {
public:
	text_parser(reading &into, uint32_t input)
		: into_(into), said_(into), input_(input)
	{
		if (into_.moments.empty())
			into_.moments.emplace_back();
	}

	void file(std::string_view path, std::string_view text);
	void text(std::string_view text);

private:
	void lines(std::string_view text);
	void line(std::string_view text, place at);
	void slow_line(std::string_view text, place at);
	bool report_line(std::string_view text, place at);
	bool loose_line(std::string_view text, place at);
	bool system_line(std::string_view text, place at);
	bool mark_line(std::string_view text, place at);
	void begin_snapshot(std::string_view mark, place at);
	void end_snapshot(scan rest, place at);
	void begin_section(std::string_view path, place at);
	void begin_report(report_kind kind, bool whole, place at);
	void end_report(bool at_end = false);
	void take_from_before(report_kind kind);
	void settle_half();
	void unreadable(std::string_view text, place at);
	void cut_line(std::string_view text, place at);
	void add_to_sum(std::string_view text);
	void settle_sum();
	task &task_of(int64_t pid, place at);

	model &moment()
	{
		return into_.moments.back();
	}

	reading &into_;
	notes said_;
	const uint32_t input_;

	content content_ = content::loose;
	bool exact_ = false;  /* nothing else can be between the sections */
	bool serial_ = false; /* the line came over a serial console */
	int64_t pid_ = 0;     /* of a task's section */
	std::unique_ptr<report_parser> parser_;
	report_kind kind_ = report_kind::mem;
	report_state state_;

	/* What was typed last at a prompt. */
	std::optional<mention> hint_;

	/* What a message of the kernel has interrupted. */
	std::string half_;
	place half_at_;

	/* The mark of the snapshot that the lines are in, if they are. */
	std::string mark_;
	bool in_snapshot_ = false;
	bool after_snapshot_ = false;
	checksum sum_;
	std::string_view unsummed_; /* lines that are not yet in the sum */
};

void text_parser::unreadable(std::string_view text, place at)
{
	said_.add(severity::error, at,
		  fmt::format("not understood: {}", quoted(text)));
}

void text_parser::cut_line(std::string_view text, place at)
{
	said_.add(severity::warning, at,
		  fmt::format("the input is cut off here: {}", quoted(text)));
	state_.cut = true;
}

void text_parser::begin_report(report_kind kind, bool whole, place at)
{
	end_report();
	/* A report that comes again shows another moment. */
	if (!in_snapshot_ &&
	    (after_snapshot_ || (whole && state_of(moment(), kind).whole)))
		into_.moments.emplace_back();
	after_snapshot_ = false;
	kind_ = kind;
	parser_ = make_parser(kind);
	state_ = {};
	state_.present = true;
	state_.whole = whole;
	state_.begin = at;
	state_.end = at;
}

void text_parser::end_report(bool at_end)
{
	settle_half();
	if (!parser_)
		return;
	if (at_end && parser_->lacks_lines())
		state_.cut = true;
	if (!state_.whole)
		take_from_before(kind_);
	parser_->finish(moment(), state_, said_);
	parser_ = nullptr;
}

/* A part of a report adds to what an earlier moment knows of the rest. */
void text_parser::take_from_before(report_kind kind)
{
	model &now = moment();

	if (state_of(now, kind).present)
		return;
	for (size_t i = into_.moments.size() - 1; i-- > 0;) {
		const model &before = into_.moments[i];

		if (!state_of(before, kind).present)
			continue;
		if (kind == report_kind::thread)
			now.threads = before.threads;
		else if (kind == report_kind::msgq)
			now.queues = before.queues;
		else if (kind <= report_kind::sem_detail)
			now.locks[static_cast<size_t>(kind)] =
				before.locks[static_cast<size_t>(kind)];
		return;
	}
}

/* What was interrupted, and did not go on. */
void text_parser::settle_half()
{
	std::string half;

	if (half_.empty())
		return;
	half.swap(half_);
	if (!report_line(half, half_at_) && looks_like_report(half))
		unreadable(half, half_at_);
}

/* Whether the report that the lines are in has this one. */
bool text_parser::report_line(std::string_view text, place at)
{
	if (!parser_ || parser_->line(text, at) != taken::yes)
		return false;
	state_.end = at;
	if (content_ == content::loose && parser_->complete())
		end_report();
	return true;
}

/* What several reports have, and says nothing: empty lines, and drawn ones. */
bool is_rule(std::string_view text)
{
	return text.find_first_not_of("-= ") == text.npos;
}

/* Where a shell waits for more, a log ends without being cut off. */
bool is_prompt(std::string_view text)
{
	return text.ends_with("# ") || text.ends_with("$ ") ||
	       text.ends_with("> ");
}

/* Outside of sections: whether a report begins here, or goes on. */
bool text_parser::loose_line(std::string_view text, place at)
{
	std::optional<report_kind> kind = begins(text);

	if (kind == report_kind::timer) {
		/* Both have the same head: the prompt or their order tells. */
		if (hint_ && hint_->kind == report_kind::hrt)
			kind = report_kind::hrt;
		else if ((!hint_ || hint_->kind != report_kind::timer) &&
			 state_of(moment(), report_kind::timer).present) {
			kind = report_kind::hrt;
			said_.add(severity::note, at,
				  "the second list of timers is taken for zorva.hrt");
		}
	}
	if (kind) {
		const bool whole = !hint_ || hint_->whole ||
				   hint_->kind != *kind;

		begin_report(*kind, whole, at);
		return report_line(text, at);
	}
	if (!hint_ || parser_)
		return false;

	/* A part of a report that somebody has picked out of it. */
	const auto trial = make_parser(hint_->kind);

	if (is_rule(text) || trial->line(text, at) != taken::yes)
		return false;
	begin_report(hint_->kind, false, at);
	return report_line(text, at);
}

task &text_parser::task_of(int64_t pid, place at)
{
	for (task &one : moment().tasks)
		if (one.pid == pid)
			return one;

	task &added = moment().tasks.emplace_back();

	added.pid = pid;
	added.at = at;
	return added;
}

/* In a section that is no report. */
bool text_parser::system_line(std::string_view text, place at)
{
	if (text.empty())
		return true;
	switch (content_) {
	case content::uptime:
		return parse_uptime(moment(), text);
	case content::meminfo:
		return parse_meminfo(moment(), text, at);
	case content::modules:
		return parse_modules(moment(), text, at);
	case content::version:
		moment().kernel_version = text;
		return true;
	case content::stat:
		return parse_stat(task_of(pid_, at), text);
	case content::stack:
		return parse_stack(task_of(pid_, at), text, at);
	default:
		return content_ == content::unwanted;
	}
}

/* "/proc/39/task/39/stat" */
std::optional<int64_t> pid_of(std::string_view path)
{
	const size_t name = path.rfind('/');

	if (name == path.npos || name == 0)
		return {};

	const size_t before = path.rfind('/', name - 1);
	scan in{ path.substr(before + 1, name - before - 1) };
	int64_t pid;

	if (before == path.npos || !in.number(pid) || !in.done())
		return {};
	return pid;
}

void text_parser::begin_section(std::string_view path, place at)
{
	const std::string_view name = path.substr(path.rfind('/') + 1);
	const std::optional<int64_t> pid = pid_of(path);

	end_report();
	hint_ = {};
	content_ = content::unwanted;
	if (const auto kind = report_of(name)) {
		content_ = content::report;
		begin_report(*kind, true, at);
	} else if (name == "uptime") {
		content_ = content::uptime;
	} else if (name == "meminfo") {
		content_ = content::meminfo;
	} else if (name == "modules") {
		content_ = content::modules;
	} else if (name == "version") {
		content_ = content::version;
	} else if (pid && name == "stat") {
		content_ = content::stat;
		pid_ = *pid;
	} else if (pid && name == "stack") {
		content_ = content::stack;
		pid_ = *pid;
		task_of(pid_, at).has_stack = true;
	}
}

void text_parser::begin_snapshot(std::string_view mark, place at)
{
	end_report();
	if (in_snapshot_)
		said_.add(severity::warning, at,
			  "the snapshot before this one has no end");
	mark_ = mark;
	in_snapshot_ = true;
	exact_ = true;
	sum_ = {};
	unsummed_ = {};
	content_ = content::unwanted;
	hint_ = {};
	if (!is_empty(moment()))
		into_.moments.emplace_back();
}

/* "MARK CHECKSUM BYTES"; without the means to count both are "-". */
void text_parser::end_snapshot(scan rest, place at)
{
	uint32_t sum;
	uint64_t bytes;

	end_report();
	settle_sum();
	in_snapshot_ = false;
	exact_ = false;
	after_snapshot_ = true;
	content_ = content::loose;
	if (rest.text("- -") && rest.done()) {
		said_.add(severity::note, at, "the snapshot has no checksum");
		return;
	}
	if (!rest.number(sum) || !rest.text(" ") || !rest.number(bytes) ||
	    !rest.done())
		unreadable(rest.rest, at);
	else if (sum != sum_.value() || bytes != sum_.bytes())
		said_.add(severity::warning, at,
			  fmt::format("the snapshot was changed on its way: its end says {} bytes with checksum {}, here are {} with {}",
				      bytes, sum, sum_.bytes(), sum_.value()));
}

/* The lines that a snapshot, or "tail -n +1", puts between the texts. */
bool text_parser::mark_line(std::string_view text, place at)
{
	scan in{ text };
	std::string_view path;

	if (in.text(snapshot_begin) && !in.done()) {
		begin_snapshot(in.rest, at);
		return true;
	}
	if (in_snapshot_) {
		if (in.text(snapshot_end) && in.text(mark_) && in.text(" ")) {
			end_snapshot(in, at);
			return true;
		}
		if (!in.text(snapshot_section) || !in.text(mark_) ||
		    !in.text(" "))
			return false;
		begin_section(in.rest, at);
		return true;
	}
	if (!in.text("==> ") || !in.rest.ends_with(" <=="))
		return false;
	in.rest.remove_suffix(4);
	begin_section(in.rest, at);
	return true;
}

/* What no report has as it is. */
void text_parser::slow_line(std::string_view raw, place at)
{
	const std::string text = cleaned(raw);

	if (mark_line(text, at))
		return;
	if (content_ != content::loose && content_ != content::report &&
	    system_line(text, at))
		return;

	const stamp stamped = find_stamp(text);

	if (stamped.found()) {
		/* A message of the kernel; what it interrupts goes on after. */
		if (stamped.begin > 3) {
			settle_half();
			half_ = text.substr(0, stamped.begin);
			half_at_ = at;
		}
		++into_.other_lines;
		return;
	}
	if (!half_.empty()) {
		if (!starts_like_report(text) &&
		    report_line(half_ + text, half_at_)) {
			half_.clear();
			return;
		}
		settle_half();
	}
	if (text != raw && report_line(text, at))
		return;
	if (content_ != content::loose) {
		unreadable(text, at);
		/* Whoever has typed "tail" may have gone on with more. */
		if (!exact_ && !looks_like_report(text))
			content_ = content::loose;
		return;
	}
	if (loose_line(text, at))
		return;
	if (const auto found = find_mention(text)) {
		end_report();
		hint_ = found;
		++into_.other_lines;
	} else if (looks_like_report(text)) {
		unreadable(text, at);
	} else if (!is_rule(text)) {
		++into_.other_lines;
	}
}

void text_parser::line(std::string_view text, place at)
{
	/* A name would take a message of the kernel for a part of it. */
	const bool interrupted = (!exact_ || serial_) &&
				 find_stamp(text).found();

	if (interrupted || !half_.empty() || !report_line(text, at))
		slow_line(text, at);
}

/*
 * A line of a snapshot, with its end. Lines go into the sum many at once,
 * which is faster, but before they have left the processor's cache.
 */
void text_parser::add_to_sum(std::string_view text)
{
	constexpr size_t piece = 32 * 1024;

	if (text.size() > 1 && text[text.size() - 2] == '\r') {
		settle_sum();
		while (text.ends_with('\n') || text.ends_with('\r'))
			text.remove_suffix(1);
		sum_.add(text);
		sum_.add("\n");
		return;
	}
	if (unsummed_.empty() ||
	    unsummed_.data() + unsummed_.size() != text.data()) {
		settle_sum();
		unsummed_ = text;
	} else {
		unsummed_ = { unsummed_.data(),
			      unsummed_.size() + text.size() };
	}
	if (unsummed_.size() > piece)
		settle_sum();
}

void text_parser::settle_sum()
{
	sum_.add(unsummed_);
	unsummed_ = {};
}

void text_parser::lines(std::string_view text)
{
	constexpr uint32_t step = 4096;
	const size_t total = text.size();
	place at{ input_, 0 };

	while (!text.empty()) {
		if (at.line % step == 0)
			progress::at(total - text.size(), total);

		const void *const found =
			memchr(text.data(), '\n', text.size());
		const size_t length =
			found ? static_cast<const char *>(found) - text.data()
			      : text.size();
		std::string_view one = text.substr(0, length);

		++at.line;
		text.remove_prefix(found ? length + 1 : length);
		serial_ = one.ends_with('\r');
		while (one.ends_with('\r'))
			one.remove_suffix(1);
		if (!found && (in_snapshot_ || (parser_ && !is_prompt(one)))) {
			if (!mark_line(cleaned(one), at))
				cut_line(one, at);
			break;
		}

		const bool counted = in_snapshot_;

		line(one, at);
		/* Neither the mark of the beginning nor that of the end. */
		if (counted && in_snapshot_)
			add_to_sum({ one.data(), length + 1 });
	}
	if (in_snapshot_) {
		said_.add(severity::warning, at,
			  "the snapshot is cut off here: its end is missing");
		state_.cut = true;
	}
	end_report(true);
}

void text_parser::file(std::string_view path, std::string_view text)
{
	exact_ = true;
	begin_section(path, { input_, 0 });
	lines(text);
}

void text_parser::text(std::string_view text)
{
	lines(text);
}

uint32_t add_input(reading &into, std::string_view name, std::string_view text)
{
	into.inputs.push_back({ std::string(name), text.size() });
	return static_cast<uint32_t>(into.inputs.size() - 1);
}

} // namespace

void parse_file(reading &into, std::string_view path, std::string_view text)
{
	text_parser(into, add_input(into, path, text)).file(path, text);
}

void parse_text(reading &into, std::string_view name, std::string_view text)
{
	text_parser(into, add_input(into, name, text)).text(text);
}

} // namespace zorva
