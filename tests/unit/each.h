/* SPDX-License-Identifier: GPL-2.0 */
/* Many tests by one program, each in a process of its own. */
#ifndef EACH_H
#define EACH_H

/*
 * Runs the tests that standard input names, one a line, each in a copy of this
 * process: faster than to start a program for each. Prints a line for each:
 * its name, "passed" or "failed", and the processor time it took in seconds.
 * Ends with the first that fails, unless all are to be run.
 *
 * A name may be followed by the seconds of processor time that the test may
 * take, and by a directory for its counts of coverage. Returns 1 when a test
 * has failed.
 */
int run_each(bool all);

/*
 * Runs all tests whose names are like a pattern of the shell's, each in a copy
 * of this process, so many at a time as there are processors. Prints what those
 * that fail have said, and how many passed and failed. Returns 1 when one has
 * failed.
 *
 * With a number of orders, runs those with several tasks so many times more,
 * each time with the next seed, until one fails.
 */
int run_all(unsigned int orders, const char *pattern);

#endif
