// SPDX-License-Identifier: GPL-2.0
#include "progress.h"
#include "print.h"

#include <cstdio>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

namespace zorva
{
namespace
{

constexpr std::chrono::milliseconds first_pause(1000), pause(200);

progress *now;
bool forbidden;

} // namespace

progress::progress(std::string_view what)
	: what_(escaped(what, 40)), next_(clock::now() + first_pause)
{
	if (!now && !forbidden && isatty(STDERR_FILENO))
		now = this;
}

progress::~progress()
{
	if (now != this)
		return;
	now = nullptr;
	if (shown_)
		fputs("\r\033[K", stderr);
}

void progress::show(uint64_t done, uint64_t total)
{
	const clock::time_point time = clock::now();

	if (time < next_)
		return;
	next_ = time + pause;
	shown_ = true;
	fputs(fmt::format("\r{} ... {}\033[K", what_,
			  total ? fmt::format("{} %", done * 100 / total)
				: size_text(done))
		      .c_str(),
	      stderr);
}

void progress::at(uint64_t done, uint64_t total)
{
	if (now)
		now->show(done, total);
}

void progress::wait_for(int fd, uint64_t done)
{
	pollfd one = { fd, POLLIN, 0 };

	while (now && poll(&one, 1, static_cast<int>(pause.count())) == 0)
		now->show(done, 0);
}

void progress::forbid()
{
	forbidden = true;
}

} // namespace zorva
