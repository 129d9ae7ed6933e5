/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What a report shows, copied under the lock of what it describes and printed
 * outside it: nobody waits for a report to be formatted.
 */
#ifndef ZORVA_SNAPSHOT_H
#define ZORVA_SNAPSHOT_H

#include "zk.h"

/*
 * Copies that lie one behind the other, in the kernel's memory and not in a
 * tracked block: a report shows in no account.
 */
struct snapshot {
	void *views;
	void *end;
};

/*
 * How a snapshot is made; the functions take the lock themselves. The first
 * says how many views there are to be. The second copies them to where there
 * is room for so many, and returns the end; null when there are more.
 */
struct snapshot_maker {
	size_t view_size;
	u32 (*count)(void *context);
	void *(*copy)(void *context, void *views, u32 room);
};

/*
 * Makes a snapshot with room for some that come meanwhile; may sleep. False
 * when there is no memory, or were always more than there was room for. One
 * that was made is to be freed with kvfree(snapshot.views).
 */
bool make_snapshot(snapshot &made, const snapshot_maker &maker, void *context);

/* A list of records that a report shows one after the other. */
struct report_source {
	size_t view_size;
	unsigned long (*lock)();
	void (*unlock)(unsigned long flags);
	/* These are called with the lock held; null stands before the first. */
	void *(*next)(void *record);
	void (*copy)(void *view, void *record);
	/* False when the report ends here. */
	bool (*print)(struct seq_file *seq, const void *view);
	/* With the lock held, how many are listed; null where nobody asks. */
	u32 (*listed)();
};

struct report_totals {
	u32 shown;
	u32 listed;
	bool ended; /* before all were shown */
};

/*
 * Prints all records of a list, without its lock; with it, one by one, when
 * there is no memory for their copies.
 */
report_totals show_all(struct seq_file *seq, const report_source &source);

#endif
