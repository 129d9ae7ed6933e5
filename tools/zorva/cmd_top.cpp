// SPDX-License-Identifier: GPL-2.0
/* zorva top: the live screen. */
#include "command.h"
#include "memory.h"
#include "print.h"
#include "progress.h"
#include "screen.h"
#include "top.h"

#include <chrono>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

uint64_t interval = 2;
uint64_t frames;
bool batch;
bool with_details;

std::vector<option> options()
{
	return {
		{ "--interval", "S", "seconds from look to look (2)",
		  &interval },
		{ "-b,--batch", "", "print the screens one after the other",
		  &batch },
		{ "-n,--frames", "N", "end after N looks", &frames },
		{ "--details", "",
		  "read the detailed memory report at the first look, too",
		  &with_details },
	};
}

/* What no screen shows is not read, and the dear report only when wanted. */
wants needed(bool details)
{
	wants what;

	what.details = details;
	what.tasks = false;
	what.histories = false;
	what.others = false;
	return what;
}

/* One look; false, with the reason, when nothing can be seen. */
bool look_at(const std::string &source, bool details, top_screen &screen,
	     std::string &failure)
{
	reading from = read_input(source, needed(details));

	failure = from.failure;
	if (!failure.empty())
		return false;
	screen.update(std::move(from.moments.back()));
	return true;
}

/* What a line as wide as a serial console's shows, for a program or a file. */
int run_batch(const std::string &source)
{
	constexpr size_t titles = 6; /* the first line, the last, and four */
	constexpr size_t columns = 80;
	top_screen screen;
	const top_view view;
	std::string failure;

	for (uint64_t i = 0; !frames || i < frames; ++i) {
		if (i)
			std::this_thread::sleep_for(
				std::chrono::seconds(interval));
		if (!look_at(source, with_details && !i, screen, failure)) {
			complain(escaped(failure, 300));
			return exit_unreadable;
		}

		const size_t all = screen.rows().size() + titles;

		for (const top_line &one : screen.frame(view, all, columns)) {
			const size_t end = one.text.find_last_not_of(' ');

			if (end != std::string::npos)
				print(styled(one.how,
					     std::string_view(one.text)
						     .substr(0, end + 1)) +
				      "\n");
		}
		print("\n");
	}
	return exit_nothing;
}

/* A key that changes the filter; false when it is none. */
bool type(top_view &view, int key)
{
	if (!view.typing)
		return false;
	switch (key) {
	case key_enter:
		view.typing = false;
		break;
	case key_escape:
		view.typing = false;
		view.filter.clear();
		break;
	case key_backspace:
		if (!view.filter.empty())
			view.filter.pop_back();
		break;
	default:
		if (key >= ' ' && key < 127 && view.filter.size() < 40)
			view.filter += static_cast<char>(key);
	}
	return true;
}

/* What a key does; false when it ends the program. */
bool handle(const top_screen &screen, top_view &view, int key, bool &details)
{
	constexpr int page = 10;

	if (key == key_interrupted)
		return false;
	if (type(view, key))
		return true;
	if (key != key_none && key != key_resize)
		view.message.clear();
	switch (key) {
	case 'q':
		return false;
	case 'k':
	case key_up:
		screen.move(view, -1);
		break;
	case 'j':
	case key_down:
		screen.move(view, 1);
		break;
	case key_page_up:
		screen.move(view, -page);
		break;
	case key_page_down:
		screen.move(view, page);
		break;
	case '\t':
		screen.next_section(view);
		break;
	case key_enter:
		view.looking = !view.selected.empty();
		break;
	case key_escape:
		view.looking = view.help = false;
		break;
	case '?':
	case 'h':
		view.help = !view.help;
		break;
	case 's':
		view.order = static_cast<top_order>(
			(static_cast<int>(view.order) + 1) % 3);
		break;
	case '/':
		view.typing = true;
		view.filter.clear();
		break;
	case ' ':
		view.frozen = !view.frozen;
		break;
	case 'd':
		details = true;
		break;
	default:
		break;
	}
	return true;
}

int run_screen(const std::string &source)
{
	using clock = std::chrono::steady_clock;
	top_screen shown;
	top_view view;
	std::string failure;
	bool details = with_details;
	uint64_t looks = 0;

	/* What cannot be read at all is said on the terminal as it is. */
	if (!look_at(source, details, shown, failure)) {
		complain(escaped(failure, 300));
		return exit_unreadable;
	}
	details = false;

	screen terminal;
	clock::time_point next = clock::now() + std::chrono::seconds(interval);

	if (!terminal.usable()) {
		complain("there is no terminal to show it on: use --batch");
		return exit_usage;
	}
	progress::forbid();
	for (;;) {
		terminal.show(shown.frame(view, terminal.lines(),
					  terminal.columns()));

		const auto left =
			std::chrono::duration_cast<std::chrono::milliseconds>(
				next - clock::now());
		const int key = terminal.wait_key(
			left.count() > 0 ? static_cast<int>(left.count()) : 0);

		if (!handle(shown, view, key, details))
			return exit_nothing;
		if (!details && clock::now() < next)
			continue;
		next = clock::now() + std::chrono::seconds(interval);
		if (view.frozen && !details)
			continue;
		if (!look_at(source, details, shown, failure))
			view.message = failure;
		details = false;
		if (frames && ++looks >= frames)
			return exit_nothing;
	}
}

int run_json(const common_options &common)
{
	reading from;

	if (!read_for(common, common.sources[0], {}, false, from))
		return exit_unreadable;

	json out = json_head("top", from);
	const model &now = from.last();

	out["components"] = json::array();
	for (const component_usage &one : usage_of(now))
		out["components"].push_back(
			{ { "component", json_text(one.name) },
			  { "bytes", one.current },
			  { "max_bytes", one.max },
			  { "blocks", one.allocs - one.frees } });
	out["held"] = json::array();
	for (const lock &one : best_locks(now, true).locks)
		if (one.taken)
			out["held"].push_back(
				{ { "name", json_text(one.name) },
				  { "component", json_text(one.component) },
				  { "locker", json_text(one.locker_name) } });
	out["full"] = json::array();
	for (const queue &one : now.queues.queues)
		if (one.depth >= static_cast<int64_t>(one.max_depth))
			out["full"].push_back(json_text(one.name));
	print_json(out);
	return exit_nothing;
}

int run(const common_options &common)
{
	/* Without a pause a screen could not be read. */
	if (interval < (batch ? 0 : 1) || interval > 86400) {
		complain(
			"--interval is from 1 to 86400 seconds; with --batch from 0");
		return exit_usage;
	}
	if (common.json)
		return run_json(common);
	return batch ? run_batch(common.sources[0])
		     : run_screen(common.sources[0]);
}

} // namespace

const command top_command = {
	"top",
	"the live screen: components, locks held long, full queues",
	"What has grown since the start is marked. The detailed memory report is dear\n"
	"for the switch: it is read when d is pressed, and then shows the places that\n"
	"allocate. ? lists the keys. With --json it prints one look.\n\n"
	"Examples:\n"
	"  zorva top\n"
	"  zorva top --interval 10 ssh:switch\n"
	"  zorva top --batch --frames 3 >top.txt",
	0,
	1,
	options,
	run,
};

} // namespace zorva
