/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What every test stands on: the fake kernel, a recorder of reports, and the
 * proof that nothing was left behind.
 */
#ifndef KERNEL_TEST_H
#define KERNEL_TEST_H

#include "fake/kernel.h"
#include "fake/tasks.h"
#include "zorva_debug.h"

#include <gtest/gtest.h>

/* One call of the registered debug-print function. */
struct report {
	u32 level;
	std::string file;
	std::string func;
	s32 line;
	std::string text;
	fake::context at;
	size_t logged_before; /* entries of the log */
	pid_t by;
};

/*
 * The debug-print function of the tests. It fails the test when what no call
 * may change is not as it should be.
 */
void record_report(u32 compId, s32 unit, u32 level, const char *file,
		   const char *func, s32 line, const char *format, ...);

/* Is called at each report. */
void on_report(std::function<void(const report &made)> hook);

/* The reports so far. Those that no test looked at fail it when it ends. */
const std::vector<report> &reports();

/*
 * What the running task reports during a call, as all_reports() has it: not
 * what others do meanwhile, nor interrupts. That does not count as looked at.
 */
std::string reports_during(const std::function<void()> &call);

/*
 * Reports as text, without their lines: "1 zorva_mem.cpp zorva_free_track:
 * Memory header corrupt! Invalid magic.". All of them end with a newline each.
 */
std::string last_report();
std::string all_reports();

/*
 * Lets the test that is run next begin anew, though one has been run, with its
 * tasks in the order of a seed; and tells whether that has decided anything.
 */
void begin_with_order(u64 seed);
bool order_matters();

/*
 * For a test that sets its scene by who runs first, or lets others in itself:
 * from here on tasks run in the order in which they became ready, whatever the
 * seed.
 */
void needs_arrival_order();

/*
 * The kernel without the module's having done anything yet. Proves after every
 * test that no lock, no interrupt state, no block and no open file is left,
 * and that all that was reported or logged was looked at.
 */
class KernelTest : public ::testing::Test {
protected:
	void SetUp() override;
	void TearDown() override;
};

/* The same, with the recorder registered. */
class ModuleTest : public KernelTest {
protected:
	void SetUp() override;
};

#endif
