// SPDX-License-Identifier: GPL-2.0
/*
 * Snapshots for reports. The lock of what is shown is held while it is
 * counted, and again while it is copied; what was added in between fits into
 * some spare room, or it is counted anew.
 *
 * Where no lock is held, others are let run: a kernel without preemption would
 * have the threads of the switch wait for the whole report.
 */
#include "zorva_snapshot.h"

namespace
{

constexpr u32 spare_views = 64;
constexpr u32 attempts = 3;
constexpr size_t largest_view = 512;

/* A report that is being made. */
struct report_run {
	const report_source &source;
	report_totals totals;
};

/* The lock is held. */
void count_listed(report_run &run)
{
	if (run.source.listed)
		run.totals.listed = run.source.listed();
}

u32 count_records(void *context)
{
	const report_source &source =
		static_cast<report_run *>(context)->source;
	const unsigned long flags = source.lock();
	u32 count = 0;

	for (void *record = source.next(nullptr); record;
	     record = source.next(record))
		++count;
	source.unlock(flags);
	return count;
}

void *copy_records(void *context, void *views, u32 room)
{
	auto &run = *static_cast<report_run *>(context);
	const report_source &source = run.source;
	char *end = static_cast<char *>(views);
	const unsigned long flags = source.lock();
	void *record = source.next(nullptr);

	for (; record && room; --room) {
		source.copy(end, record);
		end += source.view_size;
		record = source.next(record);
	}
	count_listed(run);
	source.unlock(flags);
	return record ? nullptr : end;
}

/* Prints a record; false when the report ends there. */
bool show(struct seq_file *seq, report_run &run, const void *view)
{
	run.totals.ended = !run.source.print(seq, view);
	++run.totals.shown;
	return !run.totals.ended;
}

void show_copied(struct seq_file *seq, report_run &run, const snapshot &copies)
{
	const char *view = static_cast<char *>(copies.views);

	while (view != copies.end && show(seq, run, view)) {
		view += run.source.view_size;
		zk_cond_resched();
	}
}

/* Prints the records as they are; the lock is held. */
void show_listed(struct seq_file *seq, report_run &run)
{
	alignas(long) char view[largest_view];
	void *record = run.source.next(nullptr);

	for (; record; record = run.source.next(record)) {
		run.source.copy(view, record);
		if (!show(seq, run, view))
			return;
	}
	count_listed(run);
}

} // namespace

bool make_snapshot(snapshot &made, const snapshot_maker &maker, void *context)
{
	for (u32 attempt = 0; attempt < attempts; ++attempt) {
		const u32 room = maker.count(context) + spare_views;
		size_t size;

		if (__builtin_mul_overflow(room, maker.view_size, &size))
			return false;
		made.views = zk_kvmalloc(size);
		if (!made.views)
			return false;
		zk_cond_resched();
		made.end = maker.copy(context, made.views, room);
		if (made.end)
			return true;
		kvfree(made.views);
	}
	return false;
}

report_totals show_all(struct seq_file *seq, const report_source &source)
{
	const snapshot_maker maker = { source.view_size, count_records,
				       copy_records };
	report_run run = { source, {} };
	snapshot copies;

	if (make_snapshot(copies, maker, &run)) {
		show_copied(seq, run, copies);
		kvfree(copies.views);
		return run.totals;
	}

	const unsigned long flags = source.lock();

	show_listed(seq, run);
	source.unlock(flags);
	return run.totals;
}
