/* SPDX-License-Identifier: GPL-2.0 */
/* Mutexes, semaphores, what they share, and their reports. */
#ifndef ZORVA_SEM_PRIVATE_H
#define ZORVA_SEM_PRIVATE_H

#include "zk.h"
#include "zorva_text.h"
#include "zorva/atomic.h"
#include "zorva/mutex.h"
#include "zorva/sem.h"

inline constexpr u32 history_slots = 8;
inline constexpr u32 action_take = 0;
inline constexpr u32 action_give = 1;

/* One take or give of a mutex. Line 0 marks an empty slot. */
struct mutex_entry {
	u32 time; /* seconds since boot */
	u32 line;
	u32 action;
	char file[file_size];
};

/* One take or give of a semaphore; a give has time limit 0. */
struct sem_entry {
	u32 time;    /* seconds since boot */
	u32 timeout; /* milliseconds */
	u32 line;
	u32 action;
	char file[file_size];
};

struct zorva_mutex {
	using entry = mutex_entry;

	struct mutex mutex;
	u32 component;
	u32 index;
	u32 active; /* has been taken or given at least once */
	char name[name_size];
	s32 historyHead;	  /* the slot of the newest entry */
	u32 locked;		  /* 1 when the newest entry is a take */
	zorva_atomic_t takeCount; /* 1 while a task holds the mutex */
	zorva_atomic_t lockerPid; /* who took it last, also after a give */
	char lockerName[33];
	entry history[history_slots];
	zorva_mutex *previous;
	zorva_mutex *next;
};

struct zorva_sem {
	using entry = sem_entry;

	struct semaphore semaphore;
	u32 initialCount; /* only kept */
	u32 component;
	u32 index;
	u32 active; /* has been taken or given at least once */
	char name[name_size];
	s32 historyHead; /* the slot of the newest entry */
	entry history[history_slots];
	zorva_sem *previous;
	zorva_sem *next;
};

/*
 * All mutexes, or all semaphores, newest first. The lock is made with the
 * first object; it guards the list, the counters, and every record's active
 * and locked fields and history.
 */
template <class Record>
struct lock_registry {
	Record *head;
	semaphore lock;
	u32 lastIndex;
	u32 count;
	u32 initialised;
};

extern "C" {

extern lock_registry<zorva_mutex> _zorvaMutexDbg;
extern lock_registry<zorva_sem> _zorvaSemDbg;

/* Record one call in an object's history. */
void zorva_mutex_history_record(zorva_mutex *mutex, u32 action,
				const char *file, u32 line);
void zorva_sem_history_record(zorva_sem *sem, u32 timeout, u32 action,
			      const char *file, u32 line);

/*
 * The reports; they return 0. A report that fills its buffer ends there and
 * then; the sequence file runs it again with a larger one.
 */
int zorva_mutex_dump(struct seq_file *seq);
int zorva_mutex_dump_detail(struct seq_file *seq);
int zorva_sem_dump(struct seq_file *seq);
int zorva_sem_dump_detail(struct seq_file *seq);
}

#endif
