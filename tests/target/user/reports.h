/* SPDX-License-Identifier: GPL-2.0 */
/* The report files, and blocks to show in them, for programs. */
#ifndef ZORVA_TESTS_REPORTS_H
#define ZORVA_TESTS_REPORTS_H

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "tap.h"

inline const std::string directory = "/proc/zorva";

inline const std::vector<std::string> entries = {
	"zorva.mutex", "zorva.mutex.detail", "zorva.sem",    "zorva.sem.detail",
	"zorva.mem",   "zorva.mem.detail",   "zorva.thread", "zorva.timer",
	"zorva.hrt",   "zorva.msgq",
};

/* The ordinary user of the board. */
constexpr uid_t operator_id = 1000;

/* Whether the kernel is of that version, or a later one. */
inline bool kernel_since(int major, int minor)
{
	int ours = 0, below = 0;
	utsname name;

	uname(&name);
	sscanf(name.release, "%d.%d", &ours, &below);
	return ours > major || (ours == major && below >= minor);
}

inline std::string path_of(const std::string &entry)
{
	return directory + "/" + entry;
}

/* An open file, closed in the end. */
class file {
public:
	file(const std::string &path, int flags)
		: fd_(::open(path.c_str(), flags | O_CLOEXEC))
	{
	}
	~file()
	{
		if (fd_ >= 0)
			::close(fd_);
	}
	file(const file &) = delete;
	file &operator=(const file &) = delete;

	operator int() const
	{
		return fd_;
	}

private:
	const int fd_;
};

/* Reads on to the end, so many bytes at a time. */
inline std::string read_on(int fd, size_t step = 65536)
{
	std::string text;
	std::vector<char> buffer(step);
	ssize_t count;

	while ((count = read(fd, buffer.data(), step)) > 0)
		text.append(buffer.data(), count);
	if (count < 0)
		text += std::string("<read: ") + strerror(errno) + ">";
	return text;
}

inline std::string whole(const std::string &path)
{
	const file opened(path, O_RDONLY);

	if (opened < 0)
		return std::string("<open: ") + strerror(errno) + ">";
	return read_on(opened);
}

/* By the clock of the reports. */
inline unsigned int uptime_secs()
{
	timespec now;

	clock_gettime(CLOCK_BOOTTIME, &now);
	return now.tv_sec;
}

/*
 * Waits for the first half of a second, so that reports which show the time
 * are the same for a while.
 */
inline void wait_for_a_quiet_moment()
{
	timespec now;

	do {
		usleep(10000);
		clock_gettime(CLOCK_BOOTTIME, &now);
	} while (now.tv_nsec < 50000000 || now.tv_nsec > 500000000);
}

/* Gives an order to zorva_lab.ko; it answers 0 or an error. */
inline int order(const std::string &text)
{
	const file lab("/sys/kernel/debug/zorva_lab", O_WRONLY);

	if (write(lab, text.data(), text.size()) != (ssize_t)text.size())
		return errno;
	return 0;
}

/* Blocks of one component after the other, freed in the end. */
class blocks {
public:
	explicit blocks(const std::vector<std::pair<unsigned, unsigned>> &wanted)
	{
		for (const auto &[comp, size] : wanted)
			EXPECT_EQ(order("alloc " + std::to_string(comp) + " " +
					std::to_string(size)),
				  0);
	}
	~blocks()
	{
		EXPECT_EQ(order("free"), 0);
	}
	blocks(const blocks &) = delete;
	blocks &operator=(const blocks &) = delete;
};

/* One block, as zorva_lab.ko shows it. */
struct shown_block {
	unsigned int comp;
	std::string name;
	unsigned int size;
	unsigned int time;
	std::string address;
};

inline std::vector<shown_block> shown_blocks()
{
	std::istringstream lines(whole("/sys/kernel/debug/zorva_lab"));
	std::vector<shown_block> all;
	shown_block each;

	while (lines >> each.comp >> each.name >> each.size >> each.time >>
	       each.address)
		all.push_back(each);
	return all;
}

inline std::string name_of(unsigned int comp)
{
	for (const shown_block &block : shown_blocks())
		if (block.comp == comp)
			return block.name;
	return "?";
}

/* A component's counters, taken from the usage table. */
struct usage {
	std::string name;
	unsigned int curr, max, allocs, frees;
};

inline usage usage_of(const std::string &name)
{
	std::istringstream lines(whole(path_of("zorva.mem")));
	usage row = {};

	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);

		if (words >> row.name >> row.curr >> row.max >> row.allocs >>
			    row.frees &&
		    row.name == name)
			return row;
	}
	return {};
}

/*
 * The detailed memory report as it has to be for the blocks that zorva_lab.ko
 * shows, if only these components are shown. Their IDs are in order.
 */
inline std::string detail_of(const std::vector<unsigned int> &comps)
{
	const std::vector<shown_block> all = shown_blocks();
	std::ostringstream text;

	text << "\n----------------\nCurrent Time : " << uptime_secs()
	     << "\n----------------\n\n";
	for (const unsigned int comp : comps) {
		const usage row = usage_of(name_of(comp));
		unsigned int number = all.size();

		text << "Component   : " << row.name
		     << "\nCurr Usage  : " << row.curr
		     << "\nMax Usage   : " << row.max
		     << "\nAlloc Count : " << row.allocs
		     << "\nFree Count  : " << row.frees
		     << "\n----------------\n";
		for (const shown_block &block : all) {
			if (block.comp == comp) {
				char time[16];

				snprintf(time, sizeof(time), "%010u",
					 block.time);
				text << "  [" << time << "] " << block.address
				     << " - " << block.size << " bytes (lab.c, "
				     << number << ")\n";
			}
			--number;
		}
		text << "\n";
	}
	return text.str();
}

/*
 * Runs something as the ordinary user and returns what it returned, which is
 * at most 255.
 */
template <typename Errand>
int as_operator(const Errand &errand)
{
	const pid_t child = fork();
	int status = 0;

	if (child == 0) {
		if (setgid(operator_id) || setuid(operator_id))
			_exit(255);
		_exit(errand());
	}
	if (child < 0 || waitpid(child, &status, 0) != child ||
	    !WIFEXITED(status))
		return 255;
	return WEXITSTATUS(status);
}

/*
 * Makes the n-th allocation of this process fail. left() tells how many would
 * still have succeeded before, or 0 if it has happened, and stops it.
 */
class failing_allocation {
public:
	explicit failing_allocation(unsigned int n)
		: fd_("/proc/thread-self/fail-nth", O_RDWR)
	{
		set(n);
	}
	~failing_allocation()
	{
		set(0);
	}

	unsigned int left()
	{
		char number[16] = "";
		const ssize_t count = pread(fd_, number, sizeof(number) - 1, 0);

		set(0);
		EXPECT(count > 0);
		return atoi(number);
	}

private:
	void set(unsigned int n)
	{
		const std::string text = std::to_string(n);

		if (pwrite(fd_, text.data(), text.size(), 0) < 0)
			tap::note("fail-nth cannot be written");
	}

	const file fd_;
};

/* As long as this lives, allocations that may sleep are made to fail too. */
class sleeping_allocations_fail {
public:
	sleeping_allocations_fail() : was_(whole(path_))
	{
		set("N");
	}
	~sleeping_allocations_fail()
	{
		set(was_);
	}

private:
	void set(const std::string &text)
	{
		const file opened(path_, O_WRONLY);

		EXPECT_EQ(write(opened, text.data(), text.size()),
			  (ssize_t)text.size());
	}

	static constexpr const char *path_ =
		"/sys/kernel/debug/failslab/ignore-gfp-wait";
	const std::string was_;
};

#endif
