// SPDX-License-Identifier: GPL-2.0
/* The terminal, by curses. */
#include "screen.h"

#include <clocale>
#include <csignal>
#include <cstdio>
#include <unistd.h>

#ifdef ZORVA_CURSES
#include <curses.h>
#endif

namespace zorva
{

#ifdef ZORVA_CURSES

namespace
{

volatile sig_atomic_t told_to_end;

void on_signal(int)
{
	told_to_end = 1;
}

constexpr short pair_of(style how)
{
	return static_cast<short>(static_cast<int>(how) + 1);
}

attr_t attributes_of(const top_line &line)
{
	attr_t how = A_NORMAL;

	switch (line.how) {
	case style::bold:
		how = A_BOLD;
		break;
	case style::dim:
		how = A_REVERSE;
		break;
	case style::bad:
	case style::warn:
	case style::good:
		how = look.colours && has_colors()
			      ? COLOR_PAIR(pair_of(line.how))
			      : A_BOLD;
		break;
	default:
		break;
	}
	return line.selected ? how | A_REVERSE : how;
}

} // namespace

screen::screen()
{
	struct sigaction end = {};

	if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
		return;
	setlocale(LC_CTYPE, "");
	/*
	 * Unlike initscr(), this does not end the program. Hardly a terminal
	 * is none of this kind.
	 */
	if (!newterm(nullptr, stdout, stdin) &&
	    !newterm("vt100", stdout, stdin))
		return;
	usable_ = true;
	end.sa_handler = on_signal;
	for (const int signal : { SIGINT, SIGTERM, SIGHUP })
		sigaction(signal, &end, nullptr);
	cbreak();
	noecho();
	keypad(stdscr, TRUE);
	set_escdelay(100);
	curs_set(0);
	if (look.colours && has_colors()) {
		start_color();
		use_default_colors();
		init_pair(pair_of(style::bad), COLOR_RED, -1);
		init_pair(pair_of(style::warn), COLOR_YELLOW, -1);
		init_pair(pair_of(style::good), COLOR_GREEN, -1);
	}
}

screen::~screen()
{
	if (usable_)
		endwin();
}

size_t screen::lines() const
{
	return LINES > 0 ? static_cast<size_t>(LINES) : 0;
}

size_t screen::columns() const
{
	return COLS > 0 ? static_cast<size_t>(COLS) : 0;
}

void screen::show(const std::vector<top_line> &lines)
{
	/* Only what has changed is sent, which a serial line needs. */
	for (size_t i = 0; i < lines.size(); ++i) {
		attrset(static_cast<int>(attributes_of(lines[i])));
		mvaddnstr(static_cast<int>(i), 0, lines[i].text.c_str(),
			  static_cast<int>(lines[i].text.size()));
	}
	attrset(A_NORMAL);
	refresh();
}

int screen::wait_key(int milliseconds)
{
	timeout(milliseconds);

	const int got = getch();

	if (told_to_end)
		return key_interrupted;
	switch (got) {
	case ERR:
		return key_none;
	case KEY_UP:
		return key_up;
	case KEY_DOWN:
		return key_down;
	case KEY_PPAGE:
		return key_page_up;
	case KEY_NPAGE:
		return key_page_down;
	case KEY_ENTER:
	case '\n':
	case '\r':
		return key_enter;
	case 27:
		return key_escape;
	case KEY_BACKSPACE:
	case 127:
	case '\b':
		return key_backspace;
	case KEY_RESIZE:
		clear();
		return key_resize;
	default:
		return got;
	}
}

#else

screen::screen() = default;
screen::~screen() = default;

size_t screen::lines() const
{
	return 0;
}

size_t screen::columns() const
{
	return 0;
}

void screen::show(const std::vector<top_line> &)
{
}

int screen::wait_key(int)
{
	return key_interrupted;
}

#endif

} // namespace zorva
