/* SPDX-License-Identifier: GPL-2.0 */
/* Load and unload, and the report files. */
#ifndef ZORVA_LKM_H
#define ZORVA_LKM_H

#include "zk.h"
#include "zorva_reports.h"

/* What an open report file has of its own; zero at its allocation. */
struct zorva_proc_priv_t {
	u32 state; /* 1 from the open to the end of the first dump */
	u32 reserved;
	void *pBuf; /* a tracked block that goes with the file, or null */
};

extern "C" {

extern struct proc_dir_entry *_zorvaProcDir;

int zorva_init(void);
void zorva_exit(void);
}

#endif
