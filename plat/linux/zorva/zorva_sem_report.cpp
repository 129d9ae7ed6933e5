// SPDX-License-Identifier: GPL-2.0
/*
 * The four reports of mutexes and semaphores.
 *
 * A report holds its registry for the whole walk, so takes and gives of that
 * kind wait for it. It takes no object's own lock: status, locker and count
 * are read while others may be changing them.
 */
#include "zorva_sem.h"
#include "zorva_atomic.h"
#include "zorva_clock.h"
#include "zorva_debug.h"
#include "zorva_guard.h"

namespace
{

/* Prints a line; the report ends, with false, when that fills the buffer. */
#define PRINT(...)                                                             \
	do {                                                                   \
		zorva_proc_printf(seq, __VA_ARGS__);                           \
		if (zk_seq_has_overflowed(seq))                                \
			return false;                                          \
	} while (0)

bool is_locked(zorva_mutex *mutex)
{
	return mutex_is_locked(&mutex->mutex);
}

bool is_locked(zorva_sem *sem)
{
	return zk_sema_count(&sem->semaphore) == 0;
}

s32 locker_of(zorva_mutex *mutex)
{
	return atomic_read(mutex->lockerPid);
}

/* A semaphore does not know who holds it. */
s32 locker_of(zorva_sem *)
{
	return 0;
}

bool print_locker(struct seq_file *seq, zorva_mutex *mutex, s32 locker,
		  bool detail)
{
	if (!detail || is_locked(mutex))
		PRINT("Locker    : %d (%s)\n", locker, mutex->lockerName);
	return true;
}

bool print_locker(struct seq_file *, zorva_sem *, s32, bool)
{
	return true;
}

const char *action_name(u32 action)
{
	return action ? "Give" : "Take";
}

bool print_entry(struct seq_file *seq, const mutex_entry &entry)
{
	PRINT("  [%016llu] %s @%s, %d\n", static_cast<u64>(entry.time),
	      action_name(entry.action), entry.file, entry.line);
	return true;
}

bool print_entry(struct seq_file *seq, const sem_entry &entry)
{
	/* A limit of eight digits or more does not fit, and is cut. */
	char suffix[16] = {};

	if (entry.action == action_take) {
		if (entry.timeout == ZORVA_WAIT_FOREVER)
			copy_text(suffix, " (forever)", sizeof(suffix));
		else
			snprintf(suffix, sizeof(suffix), " (%u msec)",
				 entry.timeout);
	}
	PRINT("  [%016llu] %s @%s, %d%s\n", static_cast<u64>(entry.time),
	      action_name(entry.action), entry.file, entry.line, suffix);
	return true;
}

/* Prints an object and its history, newest call first. */
template <class Record>
bool print_object(struct seq_file *seq, Record *record, bool detail)
{
	const s32 locker = locker_of(record);

	PRINT("Index     : %d\n", record->index);
	PRINT("Name      : %s\n", record->name);
	PRINT("Component : %s (%d)\n", _componentName[record->component],
	      record->component);
	PRINT("Status    : %s\n", is_locked(record) ? "Take" : "Give");
	if (!print_locker(seq, record, locker, detail))
		return false;
	PRINT("---------------------------------\n");
	for (u32 i = 0; i < history_slots; ++i) {
		const auto &entry = record->history[(record->historyHead - i) %
						    history_slots];

		if (!entry.line)
			break;
		if (!print_entry(seq, entry))
			return false;
	}
	PRINT("\n");
	return true;
}

/* Prints all active objects, or those of them that are locked. */
template <class Record>
void print_report(struct seq_file *seq, lock_registry<Record> &registry,
		  const char *title, const char *kind, bool detail)
{
	if (!registry.initialised)
		return;

	zorva_proc_printf(seq, "\n");
	zorva_proc_printf(seq, "----------------\n");
	zorva_proc_printf(seq, "%s", title);
	zorva_proc_printf(seq, "Current Time : %u\n", uptime_secs());
	zorva_proc_printf(seq, "----------------\n\n");

	const sema_guard lock(registry.lock);
	u32 shown = 0;

	for (Record *record = registry.head; record; record = record->next) {
		if (!record->active || (!detail && !is_locked(record)))
			continue;
		if (!print_object(seq, record, detail))
			return;
		++shown;
	}
	if (detail)
		zorva_proc_printf(seq,
				  "\nTotal number of %s: %u (active %u)\n\n",
				  kind, registry.count, shown);
	else
		zorva_proc_printf(seq, "\nNumber of %s: %u\n\n", kind, shown);
}

} // namespace

int zorva_mutex_dump(struct seq_file *seq)
{
	print_report(seq, _zorvaMutexDbg, "Dump all ACTIVE & LOCKED mutex(s)\n",
		     "Mutex", false);
	return 0;
}

int zorva_mutex_dump_detail(struct seq_file *seq)
{
	print_report(seq, _zorvaMutexDbg, "Dump all ACTIVE mutex(s)\n", "Mutex",
		     true);
	return 0;
}

int zorva_sem_dump(struct seq_file *seq)
{
	print_report(seq, _zorvaSemDbg,
		     "Dump all ACTIVE & LOCKED semaphore(s)\n", "Semaphore",
		     false);
	return 0;
}

int zorva_sem_dump_detail(struct seq_file *seq)
{
	print_report(seq, _zorvaSemDbg, "Dump all ACTIVE semaphore(s)\n",
		     "Semaphore", true);
	return 0;
}
