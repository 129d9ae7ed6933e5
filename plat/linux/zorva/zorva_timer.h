/* SPDX-License-Identifier: GPL-2.0 */
/* The records of both kinds of timers, and their reports. */
#ifndef ZORVA_TIMER_PRIVATE_H
#define ZORVA_TIMER_PRIVATE_H

#include "zk.h"
#include "zorva_text.h"
#include "zorva/timer.h"
#include "../../common/sys_sll.h"

using timer_callback = void (*)(unsigned long data);

/* The fields from period on are 0 while the timer does not run. */
struct tick_timer {
	u32 component;
	u32 timerId;
	timer_list timer;
	timer_callback callback;
	u32 data;
	u32 period; /* milliseconds */
	u32 running;
	u32 startLine;
	char startFile[file_size + 1];
};

/* How many bytes are missing at an offset to the kernel timer's alignment. */
constexpr size_t hrt_padding(size_t offset)
{
	return -offset % ZK_ALIGNOF_HRTIMER;
}

/*
 * The kernel aligns its timer to 8 bytes within the record, a tracked block
 * the record itself to a word only: so the compiler must not expect more, and
 * what it would have put in for the alignment is written out.
 */
struct hrt_timer {
	u32 component;
	u32 timerId;
	timer_callback callback;
	char gap[hrt_padding(2 * sizeof(u32) + sizeof(timer_callback))];
	hrtimer timer;
	u32 data;
	u32 period; /* milliseconds */
	u32 running;
	u32 startLine;
	char startFile[file_size + 1];
	char tail[hrt_padding(4 * sizeof(u32) + file_size + 1)];
};

static_assert(sizeof(hrt_timer) % ZK_ALIGNOF_HRTIMER == 0);
static_assert(ZK_SIZEOF_TIMER_LIST != 20 || sizeof(tick_timer) == 68);
static_assert(ZK_SIZEOF_HRTIMER != 48 || sizeof(hrt_timer) == 104);

/* As many can be made. */
inline constexpr u32 timer_limit = 1024;
inline constexpr u32 hrt_timer_limit = 64;

extern "C" {

/* All are guarded by _zorvaTimerLock; the lists come with the first timer. */
extern sys_sll_t *_pZorvaTimerList;
extern u32 _timerIndex;
extern sys_sll_t *_pZorvaHrtTimerList;
extern u32 _hrtTimerIndex;

/* The timers by (ID - 1) modulo the limit: the one that was made last. */
extern tick_timer *_zorvaTimerById[timer_limit];
extern hrt_timer *_zorvaHrtTimerById[hrt_timer_limit];

/* What the kernel calls when a timer expires. */
void _zorva_timer_wrapper(struct timer_list *timer);
enum hrtimer_restart _zorva_hrt_timer_wrapper(struct hrtimer *timer);

/* Print all timers of a kind, oldest first; return 0. */
int zorva_timer_dump(struct seq_file *seq);
int zorva_hrt_timer_dump(struct seq_file *seq);
}

#endif
