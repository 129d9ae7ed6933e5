/* SPDX-License-Identifier: GPL-2.0 */
/* The terminal, for a program that takes all of it. */
#ifndef ZORVA_TOOL_SCREEN_H
#define ZORVA_TOOL_SCREEN_H

#include "top.h"

#include <vector>

namespace zorva
{

/* What a key means; everything else is the character itself. */
enum key : int {
	key_none = -1, /* none came in time */
	key_up = 0x10000,
	key_down,
	key_page_up,
	key_page_down,
	key_enter,
	key_escape,
	key_backspace,
	key_resize,
	key_interrupted, /* told to end by a signal */
};

/*
 * Owns the terminal from its beginning to its end, and leaves it as it was.
 * One at a time.
 */
class screen {
public:
	screen();
	~screen();
	screen(const screen &) = delete;
	screen &operator=(const screen &) = delete;

	/* There is a terminal, and the program was built for one. */
	bool usable() const
	{
		return usable_;
	}
	size_t lines() const;
	size_t columns() const;
	void show(const std::vector<top_line> &lines);
	/* Waits for a key, at most so long. */
	int wait_key(int milliseconds);

private:
	bool usable_ = false;
};

} // namespace zorva

#endif
