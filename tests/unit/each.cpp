// SPDX-License-Identifier: GPL-2.0
/* Many tests by one program, each in a process of its own. */
#include "each.h"
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fnmatch.h>
#include <iostream>
#include <map>
#include <sstream>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/*
 * A test that sleeps for ever ends like this; so late, because on a busy machine
 * the processor time that a test may take is far from being all of the time.
 */
constexpr unsigned int longest_secs = 600;
constexpr unsigned int longest_cpu_secs = 60;

/* What a broken loop may allocate; the sanitizer's own take is in it. */
constexpr rlim_t memory_limit = 2u << 30;

struct order {
	std::string test;
	unsigned int cpu_secs = longest_cpu_secs;
	std::string counts;
};

/* A test can neither read, nor take more than it may, nor go on for ever. */
void limit(rlim_t cpu_secs, int out)
{
	const rlimit cpu = { cpu_secs, RLIM_INFINITY };
	const rlimit memory = { memory_limit, memory_limit };
	const rlimit no_core = { 0, 0 };
	const int nowhere = open("/dev/null", O_RDWR);

	dup2(nowhere, STDIN_FILENO);
	dup2(out < 0 ? nowhere : out, STDOUT_FILENO);
	dup2(out < 0 ? nowhere : out, STDERR_FILENO);
	setrlimit(RLIMIT_CPU, &cpu);
	setrlimit(RLIMIT_AS, &memory);
	setrlimit(RLIMIT_CORE, &no_core);
	alarm(longest_secs);
}

/* The sanitizer's own fork() writes to all of a large table. */
pid_t make_copy()
{
	std::cout.flush();

	const pid_t child = syscall(SYS_fork);

	if (child < 0) {
		perror("fork");
		exit(2);
	}
	return child;
}

[[noreturn]] void run_alone(const order &wanted)
{
	limit(wanted.cpu_secs, -1);
	if (!wanted.counts.empty())
		setenv("GCOV_PREFIX", wanted.counts.c_str(), 1);
	::testing::GTEST_FLAG(filter) = wanted.test;

	const int failed = RUN_ALL_TESTS();
	const auto &unit = *::testing::UnitTest::GetInstance();

	const int status = failed || unit.test_to_run_count() != 1;

	/* To take all down in order takes longer than most tests. */
	if (wanted.counts.empty())
		_exit(status);
	exit(status);
}

bool run_one(const order &wanted)
{
	const pid_t child = make_copy();
	rusage used = {};
	int status = -1;

	if (!child)
		run_alone(wanted);
	wait4(child, &status, 0, &used);

	const timeval &user = used.ru_utime;
	const timeval &system = used.ru_stime;

	std::cout << wanted.test << (status ? " failed " : " passed ")
		  << user.tv_sec + system.tv_sec +
			     (user.tv_usec + system.tv_usec) / 1e6
		  << std::endl;
	return !status;
}

/*
 * One order after another, for as long as it matters. What the last one has
 * said is kept.
 */
[[noreturn]] void run_in_orders(unsigned int orders)
{
	for (unsigned int seed = 0; seed <= orders; ++seed) {
		fflush(stdout);
		lseek(STDOUT_FILENO, 0, SEEK_SET);
		if (ftruncate(STDOUT_FILENO, 0))
			_exit(2);
		alarm(longest_secs);
		printf("in the order of ZORVA_SEED=%u:\n", seed);
		begin_with_order(seed);
		if (RUN_ALL_TESTS())
			_exit(1);
		if (!order_matters())
			break;
	}
	_exit(0);
}

struct running_test {
	std::string name;
	int out;
};

void start(const std::string &name, unsigned int orders,
	   std::map<pid_t, running_test> &running)
{
	const running_test test = { name, memfd_create("out", MFD_CLOEXEC) };
	const pid_t child = make_copy();

	if (child) {
		running[child] = test;
		return;
	}
	/* With orders each has its own time. */
	limit(orders ? RLIM_INFINITY : longest_cpu_secs, test.out);
	::testing::GTEST_FLAG(filter) = name;
	if (orders)
		run_in_orders(orders);
	/* What is counted is written at the end of a process. */
	exit(RUN_ALL_TESTS());
}

void show(int out)
{
	char text[4096];
	ssize_t size;

	lseek(out, 0, SEEK_SET);
	while ((size = read(out, text, sizeof(text))) > 0)
		std::cout.write(text, size);
}

/* Waits for one to end, and tells whether it has passed. */
bool end_one(std::map<pid_t, running_test> &running)
{
	int status;
	const pid_t child = wait(&status);
	const running_test test = running[child];

	running.erase(child);
	if (status) {
		show(test.out);
		std::cout << "FAILED " << test.name << std::endl;
	}
	close(test.out);
	return !status;
}

std::vector<std::string> tests_like(const char *pattern)
{
	const auto &unit = *::testing::UnitTest::GetInstance();
	std::vector<std::string> names;

	for (int i = 0; i < unit.total_test_suite_count(); ++i) {
		const ::testing::TestSuite &suite = *unit.GetTestSuite(i);

		for (int j = 0; j < suite.total_test_count(); ++j) {
			const std::string name = std::string(suite.name()) +
						 "." +
						 suite.GetTestInfo(j)->name();

			if (!fnmatch(pattern, name.c_str(), 0))
				names.push_back(name);
		}
	}
	return names;
}

} // namespace

int run_all(unsigned int orders, const char *pattern)
{
	const auto jobs = static_cast<size_t>(sysconf(_SC_NPROCESSORS_ONLN));
	std::map<pid_t, running_test> running;
	unsigned int failed = 0;
	unsigned int passed = 0;
	const auto end = [&] {
		++(end_one(running) ? passed : failed);
	};

	for (const std::string &name : tests_like(pattern)) {
		start(name, orders, running);
		if (running.size() >= jobs)
			end();
	}
	while (!running.empty())
		end();
	std::cout << passed << " passed, " << failed << " failed" << std::endl;
	return failed != 0;
}

int run_each(bool all)
{
	bool passed = true;

	for (std::string line; (passed || all) && getline(std::cin, line);) {
		std::istringstream words(line);
		order wanted;

		words >> wanted.test;
		if (!(words >> wanted.cpu_secs >> wanted.counts) &&
		    !wanted.cpu_secs)
			wanted.cpu_secs = longest_cpu_secs;
		passed &= run_one(wanted);
	}
	return !passed;
}
