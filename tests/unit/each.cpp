// SPDX-License-Identifier: GPL-2.0
/* Many tests by one program, each in a process of its own. */
#include "each.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <iostream>
#include <sstream>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/* A test that sleeps for ever ends like this; so late, whatever the load. */
constexpr unsigned int longest_secs = 120;
constexpr unsigned int longest_cpu_secs = 60;

/* What a broken loop may allocate; the sanitizer's own take is in it. */
constexpr rlim_t memory_limit = 2u << 30;

struct order {
	std::string test;
	unsigned int cpu_secs = longest_cpu_secs;
	std::string counts;
};

[[noreturn]] void run_alone(const order &wanted)
{
	const rlimit cpu = { wanted.cpu_secs, wanted.cpu_secs + 1 };
	const rlimit memory = { memory_limit, memory_limit };
	const rlimit no_core = { 0, 0 };
	const int nowhere = open("/dev/null", O_RDWR);

	dup2(nowhere, STDIN_FILENO);
	dup2(nowhere, STDOUT_FILENO);
	dup2(nowhere, STDERR_FILENO);
	setrlimit(RLIMIT_CPU, &cpu);
	setrlimit(RLIMIT_AS, &memory);
	setrlimit(RLIMIT_CORE, &no_core);
	alarm(longest_secs);
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
	/* The sanitizer's own fork() writes to all of a large table. */
	const pid_t child = syscall(SYS_fork);
	rusage used = {};
	int status = -1;

	if (child < 0) {
		perror("fork");
		exit(2);
	}
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

} // namespace

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
