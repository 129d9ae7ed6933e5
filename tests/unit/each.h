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

#endif
