/* SPDX-License-Identifier: GPL-2.0 */
/* The report files, for the tests of all that they go through. */
#ifndef REPORT_FIXTURE_H
#define REPORT_FIXTURE_H

#include "mem_fixture.h"
#include "zorva_lkm.h"

/* In the order in which they are made. */
inline const std::vector<std::string> report_entries = {
	"zorva.mutex", "zorva.mutex.detail", "zorva.sem",    "zorva.sem.detail",
	"zorva.mem",   "zorva.mem.detail",   "zorva.thread", "zorva.timer",
	"zorva.hrt",   "zorva.msgq",
};

#endif
