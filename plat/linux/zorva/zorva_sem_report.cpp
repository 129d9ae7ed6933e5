// SPDX-License-Identifier: GPL-2.0
/*
 * The four reports of mutexes and semaphores.
 *
 * Takes and gives of a kind wait for its registry, so a report copies what it
 * shows while it holds that, and prints it afterwards; when there is no memory
 * for the copies, it holds the registry for the whole walk. It takes no
 * object's own lock: status, locker and count are read while others may be
 * changing them. Where those may come in between, what is shown of an object is
 * of one moment all the same.
 */
#include "zorva_sem.h"
#include "zorva_atomic.h"
#include "zorva_clock.h"
#include "zorva_guard.h"
#include "zorva_snapshot.h"
#include "zorva/components.h"

namespace
{

/* Prints a line; false, and the report ends, when that fills the buffer. */
[[gnu::format(printf, 2, 3)]] bool print(struct seq_file *seq,
					 const char *format, ...)
{
	va_list args;

	va_start(args, format);
	seq_vprintf(seq, format, args);
	va_end(args);
	return !zk_seq_has_overflowed(seq);
}

/* The registry of each kind. */
template <class Record>
constexpr lock_registry<Record> &registry_of();

template <>
constexpr lock_registry<zorva_mutex> &registry_of()
{
	return _zorvaMutexDbg;
}

template <>
constexpr lock_registry<zorva_sem> &registry_of()
{
	return _zorvaSemDbg;
}

/*
 * Where others may come in between, a mutex is taken once its holder has been
 * noted, and until he is about to let it go.
 */
bool is_locked(zorva_mutex *mutex)
{
	if (zk_interleaves())
		return atomic_read(mutex->takeCount) != 0;
	return mutex_is_locked(&mutex->mutex);
}

bool is_locked(const zorva_sem *sem)
{
	return zk_sema_count(&sem->semaphore) == 0;
}

/* What is shown of a call; of a semaphore's take, the limit as well. */
struct entry_view {
	u32 time;
	u32 timeout;
	u32 line;
	u32 action;
	char file[file_size];
	bool has_timeout;
};

/* An object as it was when it was copied, and its calls, newest first. */
struct lock_view {
	u32 index;
	char name[name_size];
	u32 component;
	bool locked;
	bool shows_locker;
	s32 locker;
	char lockerName[sizeof(zorva_mutex::lockerName)];
	u32 entries;
	entry_view history[history_slots];
};

/*
 * Where others may come in between: nobody is noted as the holder meanwhile.
 * The list of those that are taken has found it taken; it may have been given
 * since.
 */
void copy_state_at_once(lock_view &view, zorva_mutex *mutex, bool detail)
{
	const interleave_guard lock(_zorvaLockDbgLck);

	view.locked = !detail || is_locked(mutex);
	view.shows_locker = view.locked;
	view.locker = atomic_read(mutex->lockerPid);
	memcpy(view.lockerName, mutex->lockerName, sizeof(view.lockerName));
}

/* Tested afresh each time, after the locker was read: it may change. */
void copy_state(lock_view &view, zorva_mutex *mutex, bool detail)
{
	if (zk_interleaves()) {
		copy_state_at_once(view, mutex, detail);
		return;
	}
	view.locker = atomic_read(mutex->lockerPid);
	view.locked = is_locked(mutex);
	view.shows_locker = !detail || is_locked(mutex);
	memcpy(view.lockerName, mutex->lockerName, sizeof(view.lockerName));
}

/* A semaphore does not know who holds it. */
void copy_state(lock_view &view, const zorva_sem *sem, bool detail)
{
	view.locked = (zk_interleaves() && !detail) || is_locked(sem);
	view.shows_locker = false;
}

void copy_timeout(entry_view &view, const mutex_entry &)
{
	view.has_timeout = false;
}

void copy_timeout(entry_view &view, const sem_entry &entry)
{
	view.has_timeout = entry.action == action_take;
	view.timeout = entry.timeout;
}

template <class Record, bool detail>
void copy_object(void *copy, void *listed)
{
	auto &view = *static_cast<lock_view *>(copy);
	auto *const record = static_cast<Record *>(listed);

	view.index = record->index;
	view.component = record->component;
	memcpy(view.name, record->name, sizeof(view.name));
	copy_state(view, record, detail);

	u32 i = 0;

	for (; i < history_slots; ++i) {
		const auto &from = record->history[(record->historyHead - i) %
						   history_slots];
		entry_view &to = view.history[i];

		if (!from.line)
			break;
		to.time = from.time;
		to.line = from.line;
		to.action = from.action;
		copy_words(to.file, from.file);
		copy_timeout(to, from);
	}
	view.entries = i;
}

bool print_entry(struct seq_file *seq, const entry_view &entry)
{
	/* A limit of eight digits or more does not fit, and is cut. */
	char suffix[16] = {};

	if (entry.has_timeout) {
		if (entry.timeout == ZORVA_WAIT_FOREVER)
			copy_text(suffix, " (forever)", sizeof(suffix));
		else
			snprintf(suffix, sizeof(suffix), " (%u msec)",
				 entry.timeout);
	}
	return print(seq, "  [%016llu] %s @%s, %d%s\n",
		     static_cast<u64>(entry.time),
		     entry.action ? "Give" : "Take", entry.file, entry.line,
		     suffix);
}

bool print_object(struct seq_file *seq, const void *copy)
{
	const auto &view = *static_cast<const lock_view *>(copy);

	if (!print(seq, "Index     : %d\n", view.index) ||
	    !print(seq, "Name      : %.32s\n", view.name) ||
	    !print(seq, "Component : %s (%d)\n", _componentName[view.component],
		   view.component) ||
	    !print(seq, "Status    : %s\n", view.locked ? "Take" : "Give"))
		return false;
	if (view.shows_locker && !print(seq, "Locker    : %d (%.33s)\n",
					view.locker, view.lockerName))
		return false;
	if (!print(seq, "---------------------------------\n"))
		return false;
	for (u32 i = 0; i < view.entries; ++i)
		if (!print_entry(seq, view.history[i]))
			return false;
	return print(seq, "\n");
}

template <class Record>
unsigned long lock_registry_of()
{
	down(&registry_of<Record>().lock);
	return 0;
}

template <class Record>
void unlock_registry_of(unsigned long)
{
	up(&registry_of<Record>().lock);
}

/* The next object that is active, and locked if only those are shown. */
template <class Record, bool detail>
void *next_object(void *last)
{
	auto *record = static_cast<Record *>(last);

	do
		record = record ? record->next : registry_of<Record>().head;
	while (record && (!record->active || (!detail && !is_locked(record))));
	return record;
}

template <class Record>
u32 count_of_registry()
{
	return registry_of<Record>().count;
}

template <class Record, bool detail>
constexpr report_source objects = {
	sizeof(lock_view),	     lock_registry_of<Record>,
	unlock_registry_of<Record>,  next_object<Record, detail>,
	copy_object<Record, detail>, print_object,
	count_of_registry<Record>,
};

/* Prints all active objects, or those of them that are locked. */
void print_report(struct seq_file *seq, const report_source &source,
		  const u32 &initialised, const char *title, const char *kind,
		  bool detail)
{
	/* The first object may just be being made. */
	if (!load_acquire(initialised))
		return;

	zorva_proc_printf(seq, "\n");
	zorva_proc_printf(seq, "----------------\n");
	zorva_proc_printf(seq, "%s", title);
	zorva_proc_printf(seq, "Current Time : %u\n", uptime_secs());
	zorva_proc_printf(seq, "----------------\n\n");

	const report_totals totals = show_all(seq, source);

	if (totals.ended)
		return;
	if (detail)
		zorva_proc_printf(seq,
				  "\nTotal number of %s: %u (active %u)\n\n",
				  kind, totals.listed, totals.shown);
	else
		zorva_proc_printf(seq, "\nNumber of %s: %u\n\n", kind,
				  totals.shown);
}

} // namespace

int zorva_mutex_dump(struct seq_file *seq)
{
	print_report(seq, objects<zorva_mutex, false>,
		     _zorvaMutexDbg.initialised,
		     "Dump all ACTIVE & LOCKED mutex(s)\n", "Mutex", false);
	return 0;
}

int zorva_mutex_dump_detail(struct seq_file *seq)
{
	print_report(seq, objects<zorva_mutex, true>,
		     _zorvaMutexDbg.initialised, "Dump all ACTIVE mutex(s)\n",
		     "Mutex", true);
	return 0;
}

int zorva_sem_dump(struct seq_file *seq)
{
	print_report(seq, objects<zorva_sem, false>, _zorvaSemDbg.initialised,
		     "Dump all ACTIVE & LOCKED semaphore(s)\n", "Semaphore",
		     false);
	return 0;
}

int zorva_sem_dump_detail(struct seq_file *seq)
{
	print_report(seq, objects<zorva_sem, true>, _zorvaSemDbg.initialised,
		     "Dump all ACTIVE semaphore(s)\n", "Semaphore", true);
	return 0;
}
