/* SPDX-License-Identifier: GPL-2.0 */
/* Says on a terminal how far it is with what takes long. */
#ifndef ZORVA_TOOL_PROGRESS_H
#define ZORVA_TOOL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace zorva
{

/*
 * One line on standard error, from the second second on and for as long as it
 * lives, if that is a terminal. Of several at once only the first shows.
 */
class progress {
public:
	/* what: what is being done; it is escaped */
	explicit progress(std::string_view what);
	~progress();
	progress(const progress &) = delete;
	progress &operator=(const progress &) = delete;

	/*
	 * Says how far the one that lives now is, if one does. Cheap enough for
	 * every few thousand lines.
	 *
	 * done: what has been done of it
	 * total: the end; 0 when that is not known
	 */
	static void at(uint64_t done, uint64_t total);
	/* Waits until something can be read there, and shows that it waits. */
	static void wait_for(int fd, uint64_t done);

	/* A screen has the terminal to itself. */
	static void forbid();

private:
	using clock = std::chrono::steady_clock;

	void show(uint64_t done, uint64_t total);

	const std::string what_;
	clock::time_point next_;
	bool shown_ = false;
};

} // namespace zorva

#endif
